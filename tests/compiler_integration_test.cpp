#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

#include "ndk_utils/ndk_utils.h"
#include "tests/recording_host.h"
#include "tests/temporary_directory.h"
#include "tests/texts.h"
#include "tests/transcripts.h"

namespace {

namespace fs = std::filesystem;

using Variables = std::map<std::string, std::string>;

// --- Location queries ---

TEST(Locations, JoinedPieces) {
  const Variables usual = {{"VORN_INSTALL_DIR", "/opt/s"},
                           {"NDK_COMPILER_SUBDIR", "/c"},
                           {"NDK_CNL_VERSION_FULL", "1.2.3"},
                           {"NDK_COMPILER_VERSION", "1.2"},
                           {"NDK_COMPILER_PACKAGE_NUMBER", "3"}};
  const Variables without_slash = {{"VORN_INSTALL_DIR", "/opt/s"}, {"NDK_COMPILER_SUBDIR", "c"}};
  const Variables blanks = {{"VORN_INSTALL_DIR", " /my opt/"},
                            {"NDK_COMPILER_SUBDIR", "/c/ "},
                            {"NDK_CNL_VERSION_FULL", " 1/"},
                            {"NDK_COMPILER_VERSION", " 5.0.3/ "},
                            {"NDK_COMPILER_PACKAGE_NUMBER", " 042/ "}};
  const std::string version = gets("NDK_COMPILER_VERSION");
  const std::string number = gets("NDK_COMPILER_PACKAGE_NUMBER");
  struct Row {
    const char* name;
    std::string (*query)(session_t*);
    Variables variables;
    std::string answer;  // where it is a path, as path() answers it, once
    std::string transcript;
  };
  const std::vector<Row> rows = {
      {"toolchains", get_toolchains_path, usual, "</opt/s/c/android>",
       asks_for_toolchains("/opt/s/c")},
      {"toolchains, subdirectory without slash", get_toolchains_path, without_slash,
       "</opt/sc/android>", asks_for_toolchains("/opt/sc")},
      {"toolchains, empty", get_toolchains_path, {}, "</android>", asks_for_toolchains("")},
      {"toolchains, blanks and doubled slash", get_toolchains_path, blanks,
       "< /my opt//c/ /android>", asks_for_toolchains(" /my opt//c/ ")},
      {"compiler", get_compiler_path, usual, "</opt/s/c/compilers_and_libraries_1.2.3/linux>",
       asks_for_compiler("/opt/s/c", "1.2.3")},
      {"compiler, empty",
       get_compiler_path,
       {},
       "</compilers_and_libraries_/linux>",
       asks_for_compiler("", "")},
      {"compiler, blanks and doubled slash", get_compiler_path, blanks,
       "< /my opt//c/ /compilers_and_libraries_ 1//linux>",
       asks_for_compiler(" /my opt//c/ ", " 1/")},
      {"full version", get_compiler_full_version, usual, "1.2.3", version + number},
      {"full version, empty", get_compiler_full_version, {}, ".", version + number},
      {"full version, no number",
       get_compiler_full_version,
       {{"NDK_COMPILER_VERSION", "1.2"}},
       "1.2.",
       version + number},
      {"full version, number alone",
       get_compiler_full_version,
       {{"NDK_COMPILER_PACKAGE_NUMBER", "7"}},
       ".7",
       version + number},
      {"version, unchanged", get_compiler_version, blanks, " 5.0.3/ ", version},
      {"version, empty", get_compiler_version, {}, "", version},
      {"package number, unchanged", get_compiler_package_number, blanks, " 042/ ", number},
      {"package number, empty", get_compiler_package_number, {}, "", number},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    RecordingHost host;
    host.normalise = [](const std::string& p) { return "<" + p + ">"; };
    host.variables = row.variables;

    EXPECT_EQ(row.query(&host.session), row.answer);

    EXPECT_EQ(host.record(), "\n" + row.transcript);
  }
}

// --- patch_text_file ---

class PatchTextFile : public testing::Test {
 protected:
  void patch(const std::string& file, const std::string& from = "<X>",
             const std::string& to = "y") {
    patch_text_file(directory.path() + file, from, to);
  }

  // What a file of this content becomes.
  std::string patched(const std::string& content, const std::string& from, const std::string& to) {
    directory.write("/f", content);
    patch("/f", from, to);
    EXPECT_FALSE(directory.holds("/f.tmp"));
    return directory.read("/f");
  }

  std::string record() const { return directory.hidden_in(host.record()); }

  TemporaryDirectory directory;
  RecordingHost host;
};

// Puts what happens to the files of the directory into the record of calls, at the place where it
// happens.
class WatchedPatchTextFile : public PatchTextFile {
 protected:
  void SetUp() override {
    directory.write("/f", "a\nb\n");
    constexpr unsigned EVENTS =
        IN_CREATE | IN_OPEN | IN_MODIFY | IN_CLOSE | IN_MOVE | IN_DELETE | IN_ATTRIB;
    if (queue < 0 || inotify_add_watch(queue, directory.path().c_str(), EVENTS) < 0) {
      GTEST_SKIP() << "this system gives no inotify watch, which shows the steps on disk";
    }
    host.before_call = [this] { collect(); };
  }
  void TearDown() override { close(queue); }

  void collect() {
    alignas(inotify_event) char events[4096];
    for (ssize_t size; (size = read(queue, events, sizeof events)) > 0;) {
      for (const char* p = events; p < events + size;) {
        const auto* event = reinterpret_cast<const inotify_event*>(p);
        host.calls.push_back("  " + name(event->mask) + " " + event->name);
        p += sizeof *event + event->len;
      }
    }
  }

  static std::string name(unsigned mask) {
    static const std::map<unsigned, std::string> names = {
        {IN_CREATE, "create"},        {IN_OPEN, "open"},
        {IN_MODIFY, "modify"},        {IN_CLOSE_WRITE, "close written"},
        {IN_MOVED_FROM, "move from"}, {IN_CLOSE_NOWRITE, "close unwritten"},
        {IN_MOVED_TO, "move to"}};
    const auto found = names.find(mask & IN_ALL_EVENTS);
    return found == names.end() ? "something else" : found->second;
  }

  int queue = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
};

TEST_F(PatchTextFile, Contents) {
  struct Row {
    const char* name;
    std::string content;
    std::string from;
    std::string to;
    std::string result;
  };
  const std::vector<Row> rows = {
      {"call per line", "a<X>\nb\n", "<X>", "/y", "a/y\nb\n\n"},
      {"nothing found", "a\nb\n", "<X>", "y", "a\nb\n\n"},
      {"no final newline", "a\nb", "<X>", "y", "a\nb\n\n"},
      {"empty file", "", "<X>", "y", "\n"},
      {"one newline", "\n", "<X>", "y", "\n\n"},
      {"empty lines between", "\n\na", "a", "y", "\n\ny\n\n"},
      {"several in a line", "<X><X> <X>\n", "<X>", "y", "yy y\n\n"},
      {"placeholder deleted", "a=<X>\n", "<X>", "", "a=\n\n"},
      {"carriage returns", "a\r\n<X>\r\n", "<X>", "y", "a\r\ny\r\n\n"},
      {"zero and high bytes", std::string("\0a\0<X>\0\xff\xfe\n\0", 11), "<X>", "y",
       std::string("\0a\0y\0\xff\xfe\n\0\n\n", 11)},
      {"replacement holds a newline", "a<X>b\n", "<X>", "1\n2", "a1\n2b\n\n"},
      {"placeholder holds a newline", "a\nb\n", "a\nb", "y", "a\nb\n\n"},
      {"empty placeholder is passed on", "a\n", "", "y", "a\n\n"},
      {"each pass adds a line", "ay\n\n", "<X>", "y", "ay\n\n\n"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    host.calls.clear();

    EXPECT_EQ(patched(row.content, row.from, row.to), row.result);

    EXPECT_EQ(record(), "\n" + patches("DIR/f", row.from, row.to, lines_of(row.content)));
  }
}

// Each line is in the copy before the next is asked for, and both files are closed, the input
// first, before the move.
TEST_F(WatchedPatchTextFile, StepsOnDisk) {
  patch("/f", "a", "x");

  collect();
  EXPECT_EQ(record(), R"calls(
  open f
  create f.tmp
  open f.tmp
replaceAllSubstrings("a", "a", "x")
  modify f.tmp
replaceAllSubstrings("b", "a", "x")
  modify f.tmp
replaceAllSubstrings("", "a", "x")
  modify f.tmp
  close unwritten f
  close written f.tmp
file_move("DIR/f.tmp", "DIR/f")
  move from f.tmp
  move to f
)calls");
}

TEST_F(PatchTextFile, FlushedLines) {
  directory.write("/f", "a\nb\n");
  Lines copies;
  host.before_call = [&] { copies.push_back(directory.read("/f.tmp")); };

  patch("/f", "a", "x");

  EXPECT_EQ(copies, (Lines{"", "x\n", "x\nb\n", "x\nb\n\n"}));
}

TEST_F(PatchTextFile, VeryLongLine) {
  const std::string half(1'000'000, 'x');

  EXPECT_TRUE(patched(half + "<X>" + half, "<X>", "y") == half + "y" + half + "\n\n");
}

TEST_F(PatchTextFile, ManyLines) {
  std::string content;
  std::string expected;
  for (int i = 0; i < 5'000; ++i) {
    content += std::to_string(i) + " <X>\n";
    expected += std::to_string(i) + " y\n";
  }

  EXPECT_TRUE(patched(content, "<X>", "y") == expected + "\n");
}

// Nothing is made, and a copy that lies there already does not stand in for the missing file.
TEST_F(PatchTextFile, MissingFile) {
  directory.write("/stale.tmp", "old\n");
  for (const char* file : {"/100%s", "/none/f", "/stale"}) {
    host.calls.clear();

    patch(file);

    EXPECT_EQ(record(), "\n" + cannot_open("input", std::string("DIR") + file));
  }
  EXPECT_EQ(directory.read("/stale.tmp"), "old\n");
  EXPECT_EQ(std::distance(fs::directory_iterator(directory.path()), fs::directory_iterator()), 1);
}

// A directory under the copy's name stands for one that cannot be written: no permission bit stops
// a test that runs as root. The other file's name is as long as names get, so the copy's is too
// long.
TEST_F(PatchTextFile, CopyCannotBeOpened) {
  fs::create_directory(directory.path() + "/f.tmp");
  for (const std::string& file : {std::string("/f"), "/" + std::string(255, 'n')}) {
    directory.write(file, "a<X>\n");
    host.calls.clear();

    patch(file);

    EXPECT_EQ(record(), "\n" + cannot_open("output", "DIR" + file + ".tmp"));
    EXPECT_EQ(directory.read(file), "a<X>\n");
  }
}

TEST_F(WatchedPatchTextFile, InputClosedWhenTheCopyCannotBeOpened) {
  fs::create_directory(directory.path() + "/f.tmp");
  collect();
  host.calls.clear();

  patch("/f");

  collect();
  EXPECT_EQ(record(),
            "\n  open f\n" + cannot_open("output", "DIR/f.tmp") + "  close unwritten f\n");
}

TEST_F(PatchTextFile, StaleCopy) {
  directory.write("/f.tmp", "a stale copy that is longer than the new one\n");

  EXPECT_EQ(patched("a<X>\n", "<X>", "y"), "ay\n\n");
}

// A directory opens for reading, but nothing can be read: one empty line, and a move that fails.
TEST_F(PatchTextFile, FileIsADirectory) {
  fs::create_directory(directory.path() + "/d");

  patch("/d");

  EXPECT_EQ(record(), "\n" + patches("DIR/d", "<X>", "y", {}));
  EXPECT_TRUE(fs::is_directory(directory.path() + "/d"));
  EXPECT_EQ(directory.read("/d.tmp"), "\n");
}

// The copy is a new file: the mode is not the replaced file's.
TEST_F(PatchTextFile, ModeOfANewFile) {
  directory.write("/f", "a\n");
  fs::permissions(directory.path() + "/f", fs::perms(0755));
  const mode_t before = umask(022);

  patch("/f");

  umask(before);
  EXPECT_EQ(fs::status(directory.path() + "/f").permissions(), fs::perms(0644));
}

// A limit on the size of files cuts a copy short as a full disk does.
TEST_F(PatchTextFile, WriteErrorHalfWay) {
  directory.write("/f", "1234567\n1234567\n1234567\n");
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  const rlimit limit{10, before.rlim_max};
  auto* const handler = std::signal(SIGXFSZ, SIG_IGN);
  setrlimit(RLIMIT_FSIZE, &limit);

  patch("/f");

  setrlimit(RLIMIT_FSIZE, &before);
  std::signal(SIGXFSZ, handler);

  EXPECT_EQ(record(), "\n" + patches("DIR/f", "<X>", "y", {"1234567", "1234567", "1234567"}));
  EXPECT_EQ(directory.read("/f"), "1234567\n12");
}

TEST_F(PatchTextFile, NameAsPassed) {
  directory.write("/d/f", "<X>\n");

  patch("//d/../d/f");

  EXPECT_EQ(record(), "\n" + patches("DIR//d/../d/f", "<X>", "y", {"<X>"}));
  EXPECT_EQ(directory.read("/d/f"), "y\n\n");
}

// --- integrate_ndk ---

const std::string TOOLCHAINS = "/opt/vorn/android";
const std::string COMPILER = "/opt/vorn/compilers_and_libraries_2005.3.42/linux";
const std::string SETUP_64 = TOOLCHAINS + "/x86_64-nox1.2.3/setup.mk";
const std::string SETUP_32 = TOOLCHAINS + "/x86-nox1.2.3/setup.mk";
const std::string VARIABLES_SH = COMPILER + "/bin/compilervars_arch.sh";
const std::string VARIABLES_CSH = COMPILER + "/bin/compilervars_arch.csh";

// An installed compiler of the full version 1.2.3, with one line in each of its templates.
class IntegrateNdk : public testing::Test {
 protected:
  IntegrateNdk() {
    write_templates();
    host.variables = {{"VORN_INSTALL_DIR", directory.path() + "/opt"},
                      {"NDK_COMPILER_SUBDIR", "/vorn"},
                      {"NDK_COMPILER_VERSION", "1.2"},
                      {"NDK_COMPILER_PACKAGE_NUMBER", "3"},
                      {"NDK_CNL_VERSION_FULL", "2005.3.42"},
                      {"NDK_INTEGRATION_ENABLED", "yes"},
                      {"NDK_PATH", "/ndk dir"}};
  }

  void write_templates() const {
    directory.write(SETUP_64, "64 {INSTALL_NOX_INSTALLDIR} {INSTALL_NOX_VERSION}\n");
    directory.write(SETUP_32, "32 {INSTALL_NOX_INSTALLDIR} {INSTALL_NOX_VERSION}\n");
    directory.write(VARIABLES_SH, "NDK='<NDK_DIR>'\n");
    directory.write(VARIABLES_CSH, "set NDK='<NDK_DIR>'\n");
  }

  int integrate() { return integrate_ndk(&host.session); }

  std::string record() const { return directory.hidden_in(host.record()); }

  static std::string working_directory() { return fs::current_path(); }

  // The four templates as they are now, each after its name.
  std::string templates() const {
    std::string text = "\n";
    for (const std::string& name : {SETUP_64, SETUP_32, VARIABLES_SH, VARIABLES_CSH}) {
      text += fs::path(name).filename().string() + ":\n";
      text += directory.holds(name) ? directory.read(name) : "(missing)\n";
    }
    return directory.hidden_in(text);
  }

  // The four templates as one integration leaves them.
  static std::string filled_in_templates(const std::string& ndk_dir) {
    return R"(
setup.mk:
64 DIR/opt/vorn/compilers_and_libraries_2005.3.42/linux 1.2.3


setup.mk:
32 DIR/opt/vorn/compilers_and_libraries_2005.3.42/linux 1.2.3


compilervars_arch.sh:
NDK=')" + ndk_dir +
           "'\n\ncompilervars_arch.csh:\nset NDK='" + ndk_dir + "'\n\n";
  }

  // The calls that leave them so: `script` tells what goes on in between.
  static std::string integrates(const std::string& script, const std::string& ndk_dir) {
    return begins_integration("DIR/opt/vorn", "2005.3.42") +
           fills_in_definitions("DIR" + SETUP_64, "64 ", "DIR" + COMPILER, "1.2.3") +
           fills_in_definitions("DIR" + SETUP_32, "32 ", "DIR" + COMPILER, "1.2.3") +
           gets("NDK_INTEGRATION_ENABLED") + script +
           fills_in_script("DIR" + VARIABLES_SH, "NDK='<NDK_DIR>'", ndk_dir) +
           fills_in_script("DIR" + VARIABLES_CSH, "set NDK='<NDK_DIR>'", ndk_dir);
  }

  WorkingDirectoryKept working_directory_kept;
  TemporaryDirectory directory;
  RecordingHost host;
};

TEST_F(IntegrateNdk, Enabled) {
  struct Row {
    const char* name;
    std::string ndk_path;
    std::string ndk_dir;  // as path() answers it
    std::string output;   // of the script
    std::string status;   // of the NDK, which is not looked at
  };
  const std::vector<Row> rows = {
      {"output of several lines", "/ndk dir", "/ndk dir", "installed 100%s\nin /ndk dir\n", "ok"},
      {"quote in the NDK directory", R"(/a" $(b) `c` \%s)", R"(/a" $(b) `c` \%s)", "", "ok"},
      {"no NDK path", "", "", "", "ok"},
      {"no NDK path, normalised", "", ".", "", "ok"},
      {"status of the NDK", "/ndk dir", "/ndk dir", "", "nok"},
      // What the shell says of a missing script is output like any other.
      {"missing script", "/ndk", "/ndk", "sh: 1: ./ndk_integration.sh: not found\n", "ok"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    write_templates();
    host.calls.clear();
    host.normalise = [&row](const std::string& p) { return p == row.ndk_path ? row.ndk_dir : p; };
    host.command_output = row.output;
    host.variables["NDK_PATH"] = row.ndk_path;
    host.variables["NDK_PATH_STATUS"] = row.status;
    const Variables before = host.variables;

    EXPECT_EQ(integrate(), 0);

    EXPECT_EQ(record(), "\n" + integrates(runs_script("DIR" + TOOLCHAINS, row.ndk_path, row.ndk_dir,
                                                      row.output),
                                          row.ndk_dir));
    EXPECT_EQ(templates(), filled_in_templates(row.ndk_dir));
    EXPECT_EQ(working_directory(), directory.path() + TOOLCHAINS);
    EXPECT_EQ(host.variables, before);
  }
}

TEST_F(IntegrateNdk, OnlyYesEnables) {
  const std::string before = working_directory();
  for (const char* value : {"", "no", "Yes", "YES", "yes ", " yes", "yes;", "ye", "1", "true"}) {
    SCOPED_TRACE(value);
    write_templates();
    host.calls.clear();
    host.variables["NDK_INTEGRATION_ENABLED"] = value;

    EXPECT_EQ(integrate(), 0);

    EXPECT_EQ(record(), "\n" + integrates(runs_no_script(), ""));
    EXPECT_EQ(templates(), filled_in_templates(""));
    EXPECT_EQ(working_directory(), before);
  }
}

// With no template there, what is left of an enabled integration is six reports and the script.
TEST_F(IntegrateNdk, NoTemplates) {
  fs::remove_all(directory.path() + "/opt/vorn");
  const std::string before = working_directory();

  EXPECT_EQ(integrate(), 0);

  const auto reports = [](const std::string& file) {
    return calls("path", {"DIR" + file}) + cannot_open("input", "DIR" + file);
  };
  EXPECT_EQ(record(), "\n" + begins_integration("DIR/opt/vorn", "2005.3.42") + reports(SETUP_64) +
                          reports(SETUP_64) + reports(SETUP_32) + reports(SETUP_32) +
                          gets("NDK_INTEGRATION_ENABLED") +
                          runs_script("DIR" + TOOLCHAINS, "/ndk dir", "/ndk dir", "") +
                          reports(VARIABLES_SH) + reports(VARIABLES_CSH));
  EXPECT_EQ(working_directory(), before) << "chdir to a missing directory";
}

TEST_F(IntegrateNdk, OneTemplateMissing) {
  host.variables.erase("NDK_INTEGRATION_ENABLED");
  for (const std::string& missing : {SETUP_64, SETUP_32, VARIABLES_SH, VARIABLES_CSH}) {
    directory.write(SETUP_64, "{INSTALL_NOX_VERSION}");
    directory.write(SETUP_32, "{INSTALL_NOX_VERSION}");
    directory.write(VARIABLES_SH, "<NDK_DIR>.");
    directory.write(VARIABLES_CSH, "<NDK_DIR>.");
    fs::remove(directory.path() + missing);

    EXPECT_EQ(integrate(), 0);

    const auto content = [&](const std::string& file, const char* filled) {
      return file == missing ? "(missing)\n" : filled;
    };
    EXPECT_EQ(templates(), std::string("\nsetup.mk:\n") + content(SETUP_64, "1.2.3\n\n\n") +
                               "setup.mk:\n" + content(SETUP_32, "1.2.3\n\n\n") +
                               "compilervars_arch.sh:\n" + content(VARIABLES_SH, ".\n\n") +
                               "compilervars_arch.csh:\n" + content(VARIABLES_CSH, ".\n\n"));
  }
}

// What path answers is the file that is patched, each time it is asked.
TEST_F(IntegrateNdk, FilesThatPathNames) {
  const Lines placeholders = {"{INSTALL_NOX_INSTALLDIR}",
                              "{INSTALL_NOX_VERSION}",
                              "{INSTALL_NOX_INSTALLDIR}",
                              "{INSTALL_NOX_VERSION}",
                              "<NDK_DIR>",
                              "<NDK_DIR>"};
  const auto staged = [](std::size_t i) { return "/staged" + std::to_string(i); };
  for (std::size_t i = 0; i < placeholders.size(); ++i) {
    directory.write(staged(i), placeholders[i]);
  }
  std::size_t asked = 0;
  host.normalise = [&](const std::string& p) {
    const std::string extension = fs::path(p).extension();
    const bool is_template = extension == ".mk" || extension == ".sh" || extension == ".csh";
    return is_template ? directory.path() + staged(asked++) : "<" + p + ">";
  };
  const std::string before = templates();

  EXPECT_EQ(integrate(), 0);

  Lines contents;
  for (std::size_t i = 0; i < placeholders.size(); ++i) {
    contents.push_back(directory.hidden_in(directory.read(staged(i))));
  }
  const std::string compiler = "<DIR/opt/vorn/compilers_and_libraries_2005.3.42/linux>\n\n";
  EXPECT_EQ(contents, (Lines{compiler, "1.2.3\n\n", compiler, "1.2.3\n\n", "</ndk dir>\n\n",
                             "</ndk dir>\n\n"}));
  EXPECT_EQ(templates(), before);
}

TEST_F(IntegrateNdk, SecondRun) {
  EXPECT_EQ(integrate(), 0);
  host.variables["NDK_PATH"] = "/other";
  host.calls.clear();

  EXPECT_EQ(integrate(), 0);

  const auto passes_over_definitions = [](const std::string& file, const std::string& line) {
    return calls("path", {file}) +
           patches(file, "{INSTALL_NOX_INSTALLDIR}", "DIR" + COMPILER, {line, "", ""}) +
           calls("path", {file}) +
           patches(file, "{INSTALL_NOX_VERSION}", "1.2.3", {line, "", "", ""});
  };
  const auto passes_over_script = [](const std::string& file, const std::string& line) {
    return calls("path", {file}) + patches(file, "<NDK_DIR>", "/other", {line, ""});
  };
  EXPECT_EQ(record(),
            "\n" + begins_integration("DIR/opt/vorn", "2005.3.42") +
                passes_over_definitions("DIR" + SETUP_64, "64 DIR" + COMPILER + " 1.2.3") +
                passes_over_definitions("DIR" + SETUP_32, "32 DIR" + COMPILER + " 1.2.3") +
                gets("NDK_INTEGRATION_ENABLED") +
                runs_script("DIR" + TOOLCHAINS, "/other", "/other", "") +
                passes_over_script("DIR" + VARIABLES_SH, "NDK='/ndk dir'") +
                passes_over_script("DIR" + VARIABLES_CSH, "set NDK='/ndk dir'"));
  EXPECT_EQ(templates(), R"(
setup.mk:
64 DIR/opt/vorn/compilers_and_libraries_2005.3.42/linux 1.2.3




setup.mk:
32 DIR/opt/vorn/compilers_and_libraries_2005.3.42/linux 1.2.3




compilervars_arch.sh:
NDK='/ndk dir'


compilervars_arch.csh:
set NDK='/ndk dir'


)");
}

TEST_F(IntegrateNdk, FilesOfAnInterruptedRun) {
  host.fail_at(3, "file_move");

  EXPECT_THROW(integrate(), HostFailure);

  EXPECT_EQ(templates(), R"(
setup.mk:
64 DIR/opt/vorn/compilers_and_libraries_2005.3.42/linux 1.2.3


setup.mk:
32 {INSTALL_NOX_INSTALLDIR} {INSTALL_NOX_VERSION}
compilervars_arch.sh:
NDK='<NDK_DIR>'
compilervars_arch.csh:
set NDK='<NDK_DIR>'
)");
}

// --- unintegrate_ndk ---

TEST(UnintegrateNdk, OneLine) {
  RecordingHost host;
  host.variables = {{"NDK_PATH", "/ndk"}, {"NDK_INTEGRATION_ENABLED", "yes"}};
  const Variables before = host.variables;

  EXPECT_EQ(unintegrate_ndk(&host.session), 0);

  EXPECT_EQ(host.record(), "\n" + logs("unintegrate_ndk() NOT IMPLEMENTED"));
  EXPECT_EQ(host.variables, before);
}

}  // namespace
