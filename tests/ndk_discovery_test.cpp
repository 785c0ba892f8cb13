#include <gtest/gtest.h>

#include "ndk_utils/ndk_utils.h"
#include "tests/recording_host.h"
#include "tests/transcripts.h"

using Variables = std::map<std::string, std::string>;

// --- is_ndk_dir ---

TEST(IsNdkDir, Directories) {
  struct Row {
    const char* name;
    std::string dir;
    unsigned markers;  // the files that it holds
    bool is_ndk;
    std::string real;  // what path() adds to the front of a name
  };
  const std::vector<Row> rows = {
      {"launcher and properties", "/ndk", kLauncher | kProperties, true, ""},
      {"both launchers", "/ndk", kLauncher | kWindowsLauncher | kProperties, true, ""},
      {"Windows launcher only", "/ndk", kWindowsLauncher | kProperties, true, ""},
      {"no launcher", "/ndk", kProperties, false, ""},
      {"launcher without properties", "/ndk", kLauncher, false, ""},
      {"Windows launcher without properties", "/ndk", kWindowsLauncher, false, ""},
      {"trailing slash", "/ndk/", kNdk, true, ""},
      {"the empty directory is the root", "", kWindowsLauncher | kProperties, true, ""},
      {"normalised names", "/ndk", kWindowsLauncher | kProperties, true, "/real"},
      {"percent signs and blanks", "/my %s%n", kNone, false, ""},
  };
  for (const Row& row : rows) {
    for (const int yes : {1, 256, 65536, -1}) {
      SCOPED_TRACE(row.name + (", true is " + std::to_string(yes)));
      RecordingHost host;
      host.exists = yes;
      host.normalise = [&row](const std::string& p) { return row.real + p; };
      for (const auto& [marker, file] :
           {std::pair(kLauncher, "/ndk-build"), std::pair(kWindowsLauncher, "/ndk-build.cmd"),
            std::pair(kProperties, "/source.properties")}) {
        if ((row.markers & marker) != 0) {
          host.files[row.real + row.dir + file] = "";
        }
      }

      EXPECT_EQ(is_ndk_dir(row.dir), row.is_ndk);

      EXPECT_EQ(host.record(), "\n" + looks_at(row.dir, row.markers, row.real));
    }
  }
}

// --- validate_ndk_path ---

TEST(ValidateNdkPath, Verdicts) {
  struct Row {
    const char* name;
    std::string ndk_path;
    std::string supported;
    std::string revision;  // of /ndk
    int writable;
    std::string status;
    std::string transcript;
  };
  const std::vector<Row> rows = {
      {"supported NDK", "/ndk", "r10e;r11c", "11.2.4", 1, "ok",
       judges_good("/ndk", "11.2.4", "r11c", "r10e;r11c")},
      {"no NDK", "/home", "r11c", "11.2.4", 1, "nok", judges_no_ndk("/home")},
      {"empty path", "", "", "11.2.4", 1, "nok", judges_no_ndk("")},
      {"not writable", "/ndk", "r11c", "11.2.4", 0, "notwritable", judges_read_only("/ndk")},
      {"unsupported release", "/ndk", "r10e;r11c", "21.4.7075529", 1, "unsupported",
       judges_unsupported("/ndk", "21.4.7075529", "r21e", "r10e;r11c")},
      {"unreadable release", "/ndk", "r11", "11", 1, "unsupported",
       judges_unsupported("/ndk", "11", "", "r11")},
      {"unreadable release that the list holds", "/ndk", "r-1", "", 1, "ok",
       judges("/ndk", "/ndk", reads_release("/ndk", "", "") + finds_supported("r-1", "r-1"), "ok")},
      {"normalised path is used and not written back", "/ndk/", "r11c", "11.2.4", 1, "ok",
       judges("/ndk/", "/ndk",
              reads_release("/ndk", "11.2.4", "r11c") + finds_supported("r11c", "r11c"), "ok")},
      // A host whose truth values have no bit in the low byte, or all bits, says true as well.
      {"any non-zero answer means writable", "/ndk", "r11c", "11.2.4", 256, "ok",
       judges_good("/ndk", "11.2.4", "r11c", "r11c")},
      {"any non-zero answer means writable", "/ndk", "r11c", "11.2.4", 65536, "ok",
       judges_good("/ndk", "11.2.4", "r11c", "r11c")},
      {"any non-zero answer means writable", "/ndk", "r11c", "11.2.4", -1, "ok",
       judges_good("/ndk", "11.2.4", "r11c", "r11c")},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    RecordingHost host;
    host.normalise = [](const std::string& p) { return p == "/ndk/" ? "/ndk" : p; };
    host.add_ndk("/ndk", row.revision);
    host.writable["/ndk"] = row.writable;
    host.variables = {{"NDK_PATH", row.ndk_path}, {"NDK_SUPPORTED_VERSIONS", row.supported}};

    EXPECT_EQ(validate_ndk_path(&host.session), 0);

    EXPECT_EQ(host.record(), "\n" + row.transcript);
    EXPECT_EQ(host.variables, (Variables{{"NDK_PATH", row.ndk_path},
                                         {"NDK_PATH_STATUS", row.status},
                                         {"NDK_SUPPORTED_VERSIONS", row.supported}}));
  }
}

// --- detect_ndk ---

TEST(DetectNdk, PresetPath) {
  for (const char* preset : {"/does/not/exist %s", " "}) {
    RecordingHost host;
    host.variables = {{"NDK_PATH", preset},
                      {"NDK_PATH_STATUS", "nok"},
                      {"NDK_DEFAULT_SEARCH_PATH_LINUX", "/ndk"}};
    const Variables before = host.variables;

    EXPECT_EQ(detect_ndk(&host.session), 0);

    EXPECT_EQ(host.record(), "\n" + keeps_preset(preset));
    EXPECT_EQ(host.variables, before);
  }
}

// A search of these candidates that leaves `found` in NDK_PATH.
static void expect_search(const Variables& ndks, const std::string& search_path,
                          const std::string& supported, const std::string& found,
                          const std::string& transcript) {
  SCOPED_TRACE(search_path);
  RecordingHost host;
  host.keep_empty_pieces = true;
  host.normalise = [](const std::string& p) { return p == " /my %sndk/ " ? "/ndk" : p; };
  host.writable["/read-only"] = 0;
  for (const auto& [dir, revision] : ndks) {
    host.add_ndk(dir, revision);
  }
  host.variables = {{"NDK_PATH_STATUS", "nok"},
                    {"NDK_DEFAULT_SEARCH_PATH_LINUX", search_path},
                    {"NDK_SUPPORTED_VERSIONS", supported}};

  EXPECT_EQ(detect_ndk(&host.session), 0);

  EXPECT_EQ(host.record(), "\n" + begins_search(search_path) + transcript);
  EXPECT_EQ(host.variables, (Variables{{"NDK_PATH", found},
                                       {"NDK_PATH_STATUS", "ok"},
                                       {"NDK_DEFAULT_SEARCH_PATH_LINUX", search_path},
                                       {"NDK_SUPPORTED_VERSIONS", supported}}));
}

TEST(DetectNdk, SecondOfThreeCandidates) {
  expect_search(
      {{"/b", "10.4"}, {"/c", "10.4"}}, "/a;/b;/c", "r10e", "/b",
      rejects("/a", judges_no_ndk("/a")) + takes("/b", judges_good("/b", "10.4", "r10e", "r10e")));
}

TEST(DetectNdk, NoCandidateQualifies) {
  expect_search({}, "/a", "", "", rejects("/a", judges_no_ndk("/a")));
  expect_search({{"/read-only", "11.2.4"}}, "/read-only", "r11c", "",
                rejects("/read-only", judges_read_only("/read-only")));
  expect_search({{"/a", "11.2.4"}}, "/a", "r10e", "",
                rejects("/a", judges_unsupported("/a", "11.2.4", "r11c", "r10e")));
}

TEST(DetectNdk, EmptyPieceIsACandidate) {
  expect_search(
      {{"/b", "11.0"}}, ";/b", "r11", "/b",
      rejects("", judges_no_ndk("")) + takes("/b", judges_good("/b", "11.0", "r11", "r11")));
}

TEST(DetectNdk, CandidateStaysAsSplit) {
  const std::string release =
      reads_release("/ndk", "11.2.4", "r11c") + finds_supported("r11c", "r11c");
  expect_search({{"/ndk", "11.2.4"}}, " /my %sndk/ ", "r11c", " /my %sndk/ ",
                takes(" /my %sndk/ ", judges(" /my %sndk/ ", "/ndk", release, "ok")));
}

TEST(DetectNdk, NoCandidates) {
  RecordingHost host;
  host.variables = {{"NDK_PATH_STATUS", "unsupported"}};

  EXPECT_EQ(detect_ndk(&host.session), 0);

  EXPECT_EQ(host.record(), "\n" + begins_search(""));
  EXPECT_EQ(host.variables, (Variables{{"NDK_PATH", ""},
                                       {"NDK_PATH_STATUS", "unsupported"},
                                       {"NDK_DEFAULT_SEARCH_PATH_LINUX", ""}}));
}

TEST(DetectNdk, SearchAfterAFailedSearch) {
  RecordingHost host;
  host.variables = {{"NDK_DEFAULT_SEARCH_PATH_LINUX", "/a"}, {"NDK_SUPPORTED_VERSIONS", "r11c"}};
  const std::string search = begins_search("/a") + rejects("/a", judges_no_ndk("/a"));

  EXPECT_EQ(detect_ndk(&host.session), 0);
  EXPECT_EQ(detect_ndk(&host.session), 0);

  EXPECT_EQ(host.record(), "\n" + search + search);
}

TEST(DetectNdk, SearchAfterAFind) {
  RecordingHost host;
  host.add_ndk("/a", "11.2.4");
  host.variables = {{"NDK_DEFAULT_SEARCH_PATH_LINUX", "/a"}, {"NDK_SUPPORTED_VERSIONS", "r11c"}};

  EXPECT_EQ(detect_ndk(&host.session), 0);
  EXPECT_EQ(detect_ndk(&host.session), 0);

  EXPECT_EQ(host.record(), "\n" + begins_search("/a") +
                               takes("/a", judges_good("/a", "11.2.4", "r11c", "r11c")) +
                               keeps_preset("/a"));
}

TEST(DetectNdk, ThrowingHost) {
  RecordingHost host;
  host.fail_at(2, "env_get_string");

  EXPECT_THROW(detect_ndk(&host.session), HostFailure);

  EXPECT_EQ(host.record(),
            "\n" + logs("detect_ndk()") + gets("NDK_PATH") + gets("NDK_DEFAULT_SEARCH_PATH_LINUX"));
}
