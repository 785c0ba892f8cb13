#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <ostream>
#include <type_traits>

#include "ndk_utils/ndk_utils.h"
#include "tests/recording_host.h"
#include "tests/transcripts.h"

static_assert(std::is_same_v<decltype(ndk_version_t::major), std::int32_t>);
static_assert(std::is_same_v<decltype(ndk_version_t::minor), std::int32_t>);
static_assert(offsetof(ndk_version_t, major) == 0 && offsetof(ndk_version_t, minor) == 4);
static_assert(sizeof(ndk_version_t) == 8 && std::is_trivial_v<ndk_version_t>);

static bool operator==(ndk_version_t a, ndk_version_t b) {
  return a.major == b.major && a.minor == b.minor;
}

static std::ostream& operator<<(std::ostream& out, ndk_version_t version) {
  return out << "{" << version.major << ", " << version.minor << "}";
}

constexpr ndk_version_t UNKNOWN{-1, -1};
constexpr std::int32_t LEAST = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t MOST = std::numeric_limits<std::int32_t>::max();

// --- get_version ---

TEST(GetVersion, Revisions) {
  struct Row {
    const char* name;
    std::string dir;
    std::string revision;
    ndk_version_t version;
    std::string logged;
  };
  const std::vector<Row> rows = {
      {"three numbers", "/ndk", "11.2.4", {11, 2}, "r11c"},
      {"two numbers", "/ndk", "11.2", {11, 2}, "r11c"},
      {"four numbers", "/ndk", "11.2.4.1", {11, 2}, "r11c"},
      {"first issue of a release", "/ndk", "11.0.4", {11, 0}, "r11"},
      {"one number", "/ndk", "11", UNKNOWN, ""},
      {"empty", "/ndk", "", UNKNOWN, ""},
      {"trailing slash", "/ndk/", "11.2.4", {11, 2}, "r11c"},
      {"pieces as they stand", "/ndk", "x% . 2 .rc%s ", {0, 2}, "r0c"},
      {"unchecked numbers", "/ndk", "2147483647.-2147483648", {MOST, LEAST}, "r2147483647"},
      // The text ends at the character 0 in the log, and nowhere else.
      {"letter of code zero", "/ndk", "10.159", {10, 159}, "r10"},
  };
  for (const Row& row : rows) {
    for (const int yes : {1, 256, 65536, -1}) {
      SCOPED_TRACE(row.name + (", true is " + std::to_string(yes)));
      RecordingHost host;
      host.exists = yes;
      host.keep_empty_pieces = yes == 256;
      host.add_ndk(row.dir, row.revision);

      EXPECT_EQ(get_version(row.dir), row.version);

      EXPECT_EQ(host.record(), "\n" + reads_release(row.dir, row.revision, row.logged));
    }
  }
}

// The recording host compares keys as they stand, and here no blank is before "=".
TEST(GetVersion, MissingKey) {
  RecordingHost host;
  host.files["/ndk/source.properties"] = "Pkg.Desc = Android NDK\nPkg.Revision=11.2.4\n";

  EXPECT_EQ(get_version("/ndk"), UNKNOWN);

  EXPECT_EQ(host.record(), "\n" + reads_release("/ndk", "", ""));
}

// Named by the directory as passed.
TEST(GetVersion, MissingFile) {
  for (const std::string real : {"", "/real"}) {
    RecordingHost host;
    host.normalise = [&real](const std::string& p) { return real + p; };

    EXPECT_EQ(get_version("/ndk 100%s"), UNKNOWN);

    EXPECT_EQ(host.record(),
              "\n" + looks_for("/ndk 100%s/source.properties", real) +
                  logs("get_version(): ERROR! Could not find source.properties file in '%s'",
                       {"/ndk 100%s"}));
  }
}

TEST(GetVersion, ReaderGetsTheDirectoryAsPassed) {
  RecordingHost host;
  host.normalise = [](const std::string& p) { return "/real" + p; };
  host.files = {{"/real/ndk/source.properties", ""},
                {"/ndk/source.properties", "Pkg.Revision = 11.2.4\n"}};

  EXPECT_EQ(get_version("/ndk"), (ndk_version_t{11, 2}));

  EXPECT_EQ(host.record(), "\n" + reads_release("/ndk", "11.2.4", "r11c", "/real"));
}

TEST(GetVersion, ReaderDestroyedWhenTheHostThrows) {
  RecordingHost host;
  host.add_ndk("/ndk", "11.2.4");
  host.fail_at(1, "IniDb::value");

  EXPECT_THROW(get_version("/ndk"), HostFailure);

  EXPECT_EQ(host.record(), "\n" + looks_for("/ndk/source.properties") +
                               calls("IniDb", {"/ndk", "source.properties", "="}) +
                               calls("IniDb::value", {"Pkg.Revision "}) + "~IniDb()\n");
  EXPECT_EQ(host.live_readers, 0U);
}

// --- ndk_version_string ---

TEST(NdkVersionString, Releases) {
  struct Row {
    const char* name;
    ndk_version_t version;
    std::string text;
  };
  const std::vector<Row> rows = {
      {"update zero has no letter", {10, 0}, "r10"},
      {"update zero has no letter", {0, 0}, "r0"},
      {"update zero has no letter", {21, 0}, "r21"},
      {"update one is b", {10, 1}, "r10b"},
      {"update one is b", {10, 2}, "r10c"},
      {"update one is b", {10, 4}, "r10e"},
      {"update one is b", {10, 25}, "r10z"},
      {"negative update has no letter", {5, -3}, "r5"},
      {"negative update has no letter", {5, -1}, "r5"},
      {"negative update has no letter", {5, LEAST}, "r5"},
      {"unknown release", UNKNOWN, "r-1"},
      {"characters after z", {10, 26}, "r10{"},
      {"characters after z", {10, 27}, "r10|"},
      {"characters after z", {10, 158}, "r10\xff"},
      {"letter wraps at eight bits", {10, 159}, std::string("r10\0", 4)},
      {"letter wraps at eight bits", {10, 160}, "r10\x01"},
      {"letter wraps at eight bits", {10, 256}, "r10a"},
      {"letter wraps at eight bits", {10, 257}, "r10b"},
      {"letter wraps at eight bits", {10, MOST}, "r10`"},
      {"release is widened with its sign", {MOST, 1}, "r2147483647b"},
      {"release is widened with its sign", {LEAST, 1}, "r-2147483648b"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    RecordingHost host;

    EXPECT_EQ(ndk_version_string(row.version), row.text) << row.version;

    EXPECT_EQ(host.record(), "\ninttostr(" + std::to_string(row.version.major) + ")\n");
  }
}

// --- is_ndk_version_supported ---

TEST(IsNdkVersionSupported, Lists) {
  struct Row {
    const char* name;
    ndk_version_t version;
    std::string logged;
    std::string list;
    bool supported;
  };
  const std::vector<Row> rows = {
      {"release in the list", {10, 4}, "r10e", "r10d;r10e", true},
      {"release not in the list", {10, 0}, "r10", "r10d;r10e", false},
      {"empty list", {10, 4}, "r10e", "", false},
      {"empty entries", {10, 4}, "r10e", ";r10d;;r10e;", true},
      {"empty entries", {10, 1}, "r10b", ";r10d;;r10e;", false},
      {"unknown release", UNKNOWN, "r-1", "r1;r11c", false},
      {"unknown release", UNKNOWN, "r-1", "r11c;r-1", true},
      {"whole text only", {10, 0}, "r10", "r10b;r100;r1", false},
      {"whole text only", {10, 1}, "r10b", "r10;r10bb;10b", false},
      {"upper case", {10, 4}, "r10e", "R10E;R10e;r10E", false},
      {"blank around an entry", {10, 4}, "r10e", "r10d; r10e;r10e ", false},
      {"order and duplicates", {10, 4}, "r10e", "r10e;r10d", true},
      {"order and duplicates", {10, 4}, "r10e", "r10e;r10e", true},
      {"percent signs", {10, 4}, "r10e", "%s%n;%d", false},
      // A release text that holds the character 0 is longer than what the list shows of it.
      {"letter of code zero", {10, 159}, "r10", "r10", false},
  };
  for (const Row& row : rows) {
    for (const bool keep : {false, true}) {
      SCOPED_TRACE(row.name + (", list " + row.list));
      RecordingHost host;
      host.keep_empty_pieces = keep;

      EXPECT_EQ(is_ndk_version_supported(row.version, row.list), row.supported);

      EXPECT_EQ(host.record(),
                "\n" + (row.supported ? finds_supported : finds_unsupported)(row.logged, row.list));
    }
  }
}

TEST(IsNdkVersionSupported, ListThatHoldsTheCharacterZero) {
  RecordingHost host;

  EXPECT_TRUE(is_ndk_version_supported({10, 159}, std::string("r10\0", 4)));
}
