#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>

#include "ndk_utils/ndk_utils.h"
#include "tests/recording_host.h"
#include "tests/temporary_directory.h"

using Variables = std::map<std::string, std::string>;

// --- Location queries ---

TEST(GetToolchainsPath, JoinedPieces) {
  RecordingHost host;
  host.variables = {{"VORN_INSTALL_DIR", "/opt/s"}, {"NDK_COMPILER_SUBDIR", "/c"}};

  EXPECT_EQ(get_toolchains_path(&host.session), "/opt/s/c/android");

  EXPECT_EQ(host.record(), R"calls(
env_get_string("VORN_INSTALL_DIR")
env_get_string("NDK_COMPILER_SUBDIR")
path("/opt/s/c/android")
)calls");
}

TEST(GetToolchainsPath, SubdirWithoutSlash) {
  RecordingHost host;
  host.variables = {{"VORN_INSTALL_DIR", "/opt/s"}, {"NDK_COMPILER_SUBDIR", "c"}};

  EXPECT_EQ(get_toolchains_path(&host.session), "/opt/sc/android");

  EXPECT_EQ(host.record(), R"calls(
env_get_string("VORN_INSTALL_DIR")
env_get_string("NDK_COMPILER_SUBDIR")
path("/opt/sc/android")
)calls");
}

TEST(GetToolchainsPath, EmptyVariables) {
  RecordingHost host;

  EXPECT_EQ(get_toolchains_path(&host.session), "/android");

  EXPECT_EQ(host.record(), R"calls(
env_get_string("VORN_INSTALL_DIR")
env_get_string("NDK_COMPILER_SUBDIR")
path("/android")
)calls");
}

TEST(GetToolchainsPath, BlanksAndDoubledSlash) {
  RecordingHost host;
  host.variables = {{"VORN_INSTALL_DIR", " /my opt/"}, {"NDK_COMPILER_SUBDIR", "/c/ "}};

  EXPECT_EQ(get_toolchains_path(&host.session), " /my opt//c/ /android");

  EXPECT_EQ(host.record(), R"calls(
env_get_string("VORN_INSTALL_DIR")
env_get_string("NDK_COMPILER_SUBDIR")
path(" /my opt//c/ /android")
)calls");
}

TEST(GetToolchainsPath, NormalisedOnce) {
  RecordingHost host;
  host.normalise = [](const std::string& p) { return "<" + p + ">"; };
  host.variables = {{"VORN_INSTALL_DIR", "/opt/s"}, {"NDK_COMPILER_SUBDIR", "/c"}};

  EXPECT_EQ(get_toolchains_path(&host.session), "</opt/s/c/android>");
}

TEST(GetCompilerPath, JoinedPieces) {
  RecordingHost host;
  host.variables = {{"VORN_INSTALL_DIR", "/opt/s"},
                    {"NDK_COMPILER_SUBDIR", "/c"},
                    {"NDK_CNL_VERSION_FULL", "1.2.3"}};

  EXPECT_EQ(get_compiler_path(&host.session), "/opt/s/c/compilers_and_libraries_1.2.3/linux");

  EXPECT_EQ(host.record(), R"calls(
env_get_string("VORN_INSTALL_DIR")
env_get_string("NDK_COMPILER_SUBDIR")
env_get_string("NDK_CNL_VERSION_FULL")
path("/opt/s/c/compilers_and_libraries_1.2.3/linux")
)calls");
}

TEST(GetCompilerPath, EmptyVariables) {
  RecordingHost host;

  EXPECT_EQ(get_compiler_path(&host.session), "/compilers_and_libraries_/linux");

  EXPECT_EQ(host.record(), R"calls(
env_get_string("VORN_INSTALL_DIR")
env_get_string("NDK_COMPILER_SUBDIR")
env_get_string("NDK_CNL_VERSION_FULL")
path("/compilers_and_libraries_/linux")
)calls");
}

TEST(GetCompilerPath, BlanksAndDoubledSlash) {
  RecordingHost host;
  host.variables = {{"VORN_INSTALL_DIR", " /my opt/"},
                    {"NDK_COMPILER_SUBDIR", "/c/ "},
                    {"NDK_CNL_VERSION_FULL", " 1/"}};

  EXPECT_EQ(get_compiler_path(&host.session), " /my opt//c/ /compilers_and_libraries_ 1//linux");

  EXPECT_EQ(host.record(), R"calls(
env_get_string("VORN_INSTALL_DIR")
env_get_string("NDK_COMPILER_SUBDIR")
env_get_string("NDK_CNL_VERSION_FULL")
path(" /my opt//c/ /compilers_and_libraries_ 1//linux")
)calls");
}

TEST(GetCompilerPath, NormalisedOnce) {
  RecordingHost host;
  host.normalise = [](const std::string& p) { return "<" + p + ">"; };

  EXPECT_EQ(get_compiler_path(&host.session), "</compilers_and_libraries_/linux>");
}

TEST(GetCompilerFullVersion, VersionAndPackageNumber) {
  RecordingHost host;
  host.variables = {{"NDK_COMPILER_VERSION", "1.2"}, {"NDK_COMPILER_PACKAGE_NUMBER", "3"}};
  host.normalise = [](const std::string& p) { return "<" + p + ">"; };

  EXPECT_EQ(get_compiler_full_version(&host.session), "1.2.3");

  EXPECT_EQ(host.record(), R"calls(
env_get_string("NDK_COMPILER_VERSION")
env_get_string("NDK_COMPILER_PACKAGE_NUMBER")
)calls");
}

TEST(GetCompilerFullVersion, EmptyPieces) {
  RecordingHost host;
  EXPECT_EQ(get_compiler_full_version(&host.session), ".");

  host.variables = {{"NDK_COMPILER_VERSION", "1.2"}};
  EXPECT_EQ(get_compiler_full_version(&host.session), "1.2.");

  host.variables = {{"NDK_COMPILER_PACKAGE_NUMBER", "7"}};
  EXPECT_EQ(get_compiler_full_version(&host.session), ".7");
}

TEST(GetCompilerVersion, ValueUnchanged) {
  RecordingHost host;
  EXPECT_EQ(get_compiler_version(&host.session), "");
  host.variables["NDK_COMPILER_VERSION"] = " 5.0.3/ ";

  EXPECT_EQ(get_compiler_version(&host.session), " 5.0.3/ ");

  EXPECT_EQ(host.record(), R"calls(
env_get_string("NDK_COMPILER_VERSION")
env_get_string("NDK_COMPILER_VERSION")
)calls");
}

TEST(GetCompilerPackageNumber, ValueUnchanged) {
  RecordingHost host;
  EXPECT_EQ(get_compiler_package_number(&host.session), "");
  host.variables["NDK_COMPILER_PACKAGE_NUMBER"] = " 042/ ";

  EXPECT_EQ(get_compiler_package_number(&host.session), " 042/ ");

  EXPECT_EQ(host.record(), R"calls(
env_get_string("NDK_COMPILER_PACKAGE_NUMBER")
env_get_string("NDK_COMPILER_PACKAGE_NUMBER")
)calls");
}

// --- patch_text_file ---

namespace {

class PatchTextFile : public testing::Test {
 protected:
  // What a file of this content becomes.
  std::string patched(const std::string& content, const std::string& from, const std::string& to) {
    directory.write("/f", content);
    patch_text_file(directory.path() + "/f", from, to);
    EXPECT_FALSE(directory.holds("/f.tmp"));
    return directory.read("/f");
  }

  std::string record() const { return directory.hidden_in(host.record()); }

  TemporaryDirectory directory;
  RecordingHost host;
};

// Puts what happens to the files of a directory into the record of calls, at the place where it
// happens.
class FileWatch {
 public:
  FileWatch(RecordingHost& host, const std::string& directory)
      : host_(host), queue_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
    constexpr unsigned EVENTS =
        IN_CREATE | IN_OPEN | IN_MODIFY | IN_CLOSE | IN_MOVE | IN_DELETE | IN_ATTRIB;
    watching_ = queue_ >= 0 && inotify_add_watch(queue_, directory.c_str(), EVENTS) >= 0;
    host.before_call = [this] { collect(); };
  }
  ~FileWatch() {
    host_.before_call = nullptr;
    close(queue_);
  }
  FileWatch(const FileWatch&) = delete;
  FileWatch& operator=(const FileWatch&) = delete;

  bool watching() const { return watching_; }

  void collect() {
    alignas(inotify_event) char events[4096];
    for (ssize_t size; (size = read(queue_, events, sizeof events)) > 0;) {
      for (const char* p = events; p < events + size;) {
        const auto* event = reinterpret_cast<const inotify_event*>(p);
        host_.calls.push_back(std::string("  ") + name(event->mask) + " " + event->name);
        p += sizeof *event + event->len;
      }
    }
  }

 private:
  static const char* name(unsigned mask) {
    switch (mask & IN_ALL_EVENTS) {
      case IN_CREATE:
        return "create";
      case IN_OPEN:
        return "open";
      case IN_MODIFY:
        return "modify";
      case IN_CLOSE_WRITE:
        return "close written";
      case IN_CLOSE_NOWRITE:
        return "close unwritten";
      case IN_MOVED_FROM:
        return "move from";
      case IN_MOVED_TO:
        return "move to";
      default:
        return "something else";
    }
  }

  RecordingHost& host_;
  int queue_;
  bool watching_;
};

}  // namespace

TEST_F(PatchTextFile, CallPerLine) {
  EXPECT_EQ(patched("a<X>\nb\n", "<X>", "/y"), "a/y\nb\n\n");

  EXPECT_EQ(record(), R"calls(
replaceAllSubstrings("a<X>", "<X>", "/y")
replaceAllSubstrings("b", "<X>", "/y")
replaceAllSubstrings("", "<X>", "/y")
file_move("DIR/f.tmp", "DIR/f")
)calls");
}

// Each line is in the copy before the next is asked for, and both files are closed, the input
// first, before the move.
TEST_F(PatchTextFile, StepsOnDisk) {
  directory.write("/f", "a\nb\n");
  FileWatch watch(host, directory.path());
  if (!watch.watching()) {
    GTEST_SKIP() << "this system gives no inotify watch, which shows the steps on disk";
  }

  patch_text_file(directory.path() + "/f", "a", "x");

  watch.collect();
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
  std::vector<std::string> copies;
  host.before_call = [&] { copies.push_back(directory.read("/f.tmp")); };

  patch_text_file(directory.path() + "/f", "a", "x");

  EXPECT_EQ(copies, (std::vector<std::string>{"", "x\n", "x\nb\n", "x\nb\n\n"}));
}

TEST_F(PatchTextFile, NothingFound) { EXPECT_EQ(patched("a\nb\n", "<X>", "y"), "a\nb\n\n"); }

TEST_F(PatchTextFile, NoFinalNewline) { EXPECT_EQ(patched("a\nb", "<X>", "y"), "a\nb\n\n"); }

TEST_F(PatchTextFile, NoFinalNewlineCalls) {
  patched("a\nb", "<X>", "y");

  EXPECT_EQ(record(), R"calls(
replaceAllSubstrings("a", "<X>", "y")
replaceAllSubstrings("b", "<X>", "y")
replaceAllSubstrings("", "<X>", "y")
file_move("DIR/f.tmp", "DIR/f")
)calls");
}

TEST_F(PatchTextFile, EmptyFile) {
  EXPECT_EQ(patched("", "<X>", "y"), "\n");

  EXPECT_EQ(record(), R"calls(
replaceAllSubstrings("", "<X>", "y")
file_move("DIR/f.tmp", "DIR/f")
)calls");
}

TEST_F(PatchTextFile, OneNewline) { EXPECT_EQ(patched("\n", "<X>", "y"), "\n\n"); }

TEST_F(PatchTextFile, EmptyLinesBetween) { EXPECT_EQ(patched("\n\na", "a", "y"), "\n\ny\n\n"); }

TEST_F(PatchTextFile, SeveralInALine) {
  EXPECT_EQ(patched("<X><X> <X>\n", "<X>", "y"), "yy y\n\n");
}

TEST_F(PatchTextFile, PlaceholderDeleted) { EXPECT_EQ(patched("a=<X>\n", "<X>", ""), "a=\n\n"); }

TEST_F(PatchTextFile, CarriageReturns) {
  EXPECT_EQ(patched("a\r\n<X>\r\n", "<X>", "y"), "a\r\ny\r\n\n");

  EXPECT_EQ(record(), R"calls(
replaceAllSubstrings("a\r", "<X>", "y")
replaceAllSubstrings("<X>\r", "<X>", "y")
replaceAllSubstrings("", "<X>", "y")
file_move("DIR/f.tmp", "DIR/f")
)calls");
}

TEST_F(PatchTextFile, ZeroAndHighBytes) {
  const std::string content("\0a\0<X>\0\xff\xfe\n\0", 11);

  EXPECT_EQ(patched(content, "<X>", "y"), std::string("\0a\0y\0\xff\xfe\n\0\n", 10) + "\n");

  EXPECT_EQ(record(), R"calls(
replaceAllSubstrings("\x00a\x00<X>\x00\xff\xfe", "<X>", "y")
replaceAllSubstrings("\x00", "<X>", "y")
replaceAllSubstrings("", "<X>", "y")
file_move("DIR/f.tmp", "DIR/f")
)calls");
}

TEST_F(PatchTextFile, ReplacementHoldsANewline) {
  EXPECT_EQ(patched("a<X>b\n", "<X>", "1\n2"), "a1\n2b\n\n");
}

TEST_F(PatchTextFile, PlaceholderHoldsANewline) {
  EXPECT_EQ(patched("a\nb\n", "a\nb", "y"), "a\nb\n\n");

  EXPECT_EQ(record(), R"calls(
replaceAllSubstrings("a", "a\nb", "y")
replaceAllSubstrings("b", "a\nb", "y")
replaceAllSubstrings("", "a\nb", "y")
file_move("DIR/f.tmp", "DIR/f")
)calls");
}

TEST_F(PatchTextFile, EmptyPlaceholderIsPassedOn) {
  EXPECT_EQ(patched("a\n", "", "y"), "a\n\n");

  EXPECT_EQ(record(), R"calls(
replaceAllSubstrings("a", "", "y")
replaceAllSubstrings("", "", "y")
file_move("DIR/f.tmp", "DIR/f")
)calls");
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

TEST_F(PatchTextFile, EachPassAddsALine) {
  EXPECT_EQ(patched(patched("a<X>\n", "<X>", "y"), "<X>", "y"), "ay\n\n\n");
}

TEST_F(PatchTextFile, MissingFile) {
  patch_text_file(directory.path() + "/100%s", "<X>", "y");

  EXPECT_EQ(record(), R"calls(
error("patch_text_file: cannot open input stream of file %s", "DIR/100%s")
)calls");
  EXPECT_TRUE(std::filesystem::is_empty(directory.path()));
}

// A copy that lies there already does not stand in for the missing file.
TEST_F(PatchTextFile, MissingFileBesideACopy) {
  directory.write("/f.tmp", "old\n");

  patch_text_file(directory.path() + "/f", "<X>", "y");

  EXPECT_EQ(record(), R"calls(
error("patch_text_file: cannot open input stream of file %s", "DIR/f")
)calls");
  EXPECT_EQ(directory.read("/f.tmp"), "old\n");
}

TEST_F(PatchTextFile, MissingDirectory) {
  patch_text_file(directory.path() + "/none/f", "<X>", "y");

  EXPECT_EQ(record(), R"calls(
error("patch_text_file: cannot open input stream of file %s", "DIR/none/f")
)calls");
}

// A directory under the copy's name stands for one that cannot be written: no permission bit stops
// a test that runs as root.
TEST_F(PatchTextFile, CopyCannotBeOpened) {
  directory.write("/f", "a<X>\n");
  std::filesystem::create_directory(directory.path() + "/f.tmp");

  patch_text_file(directory.path() + "/f", "<X>", "y");

  EXPECT_EQ(record(), R"calls(
error("patch_text_file: cannot open output stream of file %s", "DIR/f.tmp")
)calls");
  EXPECT_EQ(directory.read("/f"), "a<X>\n");
}

// The file's name is as long as names get, so the copy's is too long.
TEST_F(PatchTextFile, CopyNameTooLong) {
  const std::string name(255, 'n');
  directory.write("/" + name, "a<X>\n");

  patch_text_file(directory.path() + "/" + name, "<X>", "y");

  EXPECT_EQ(record(), "\nerror(\"patch_text_file: cannot open output stream of file %s\", \"DIR/" +
                          name + ".tmp\")\n");
  EXPECT_EQ(directory.read("/" + name), "a<X>\n");
}

TEST_F(PatchTextFile, InputClosedWhenTheCopyCannotBeOpened) {
  directory.write("/f", "a\n");
  std::filesystem::create_directory(directory.path() + "/f.tmp");
  FileWatch watch(host, directory.path());
  if (!watch.watching()) {
    GTEST_SKIP() << "this system gives no inotify watch, which shows the steps on disk";
  }

  patch_text_file(directory.path() + "/f", "a", "x");

  watch.collect();
  EXPECT_EQ(record(), R"calls(
  open f
error("patch_text_file: cannot open output stream of file %s", "DIR/f.tmp")
  close unwritten f
)calls");
}

TEST_F(PatchTextFile, StaleCopy) {
  directory.write("/f.tmp", "a stale copy that is longer than the new one\n");

  EXPECT_EQ(patched("a<X>\n", "<X>", "y"), "ay\n\n");
}

// A directory opens for reading, but nothing can be read: one empty line, and a move that fails.
TEST_F(PatchTextFile, FileIsADirectory) {
  std::filesystem::create_directory(directory.path() + "/d");

  patch_text_file(directory.path() + "/d", "<X>", "y");

  EXPECT_EQ(record(), R"calls(
replaceAllSubstrings("", "<X>", "y")
file_move("DIR/d.tmp", "DIR/d")
)calls");
  EXPECT_TRUE(std::filesystem::is_directory(directory.path() + "/d"));
  EXPECT_EQ(directory.read("/d.tmp"), "\n");
}

// The copy is a new file: the mode is not the replaced file's.
TEST_F(PatchTextFile, ModeOfANewFile) {
  directory.write("/f", "a\n");
  chmod((directory.path() + "/f").c_str(), 0755);
  const mode_t before = umask(022);

  patch_text_file(directory.path() + "/f", "<X>", "y");

  umask(before);
  struct stat status {};
  ASSERT_EQ(stat((directory.path() + "/f").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0644U);
}

namespace {

// A limit on the size of files, which cuts a copy short as a full disk does.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit limit{bytes, before_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FileSizeLimit() {
    setrlimit(RLIMIT_FSIZE, &before_);
    std::signal(SIGXFSZ, handler_);
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
  void (*handler_)(int);
  rlimit before_{};
};

}  // namespace

TEST_F(PatchTextFile, WriteErrorHalfWay) {
  directory.write("/f", "1234567\n1234567\n1234567\n");
  {
    const FileSizeLimit limit(10);
    patch_text_file(directory.path() + "/f", "<X>", "y");
  }

  EXPECT_EQ(record(), R"calls(
replaceAllSubstrings("1234567", "<X>", "y")
replaceAllSubstrings("1234567", "<X>", "y")
replaceAllSubstrings("1234567", "<X>", "y")
replaceAllSubstrings("", "<X>", "y")
file_move("DIR/f.tmp", "DIR/f")
)calls");
  EXPECT_EQ(directory.read("/f"), "1234567\n12");
}

TEST_F(PatchTextFile, NameAsPassed) {
  directory.write("/d/f", "<X>\n");

  patch_text_file(directory.path() + "//d/../d/f", "<X>", "y");

  EXPECT_EQ(record(), R"calls(
replaceAllSubstrings("<X>", "<X>", "y")
replaceAllSubstrings("", "<X>", "y")
file_move("DIR//d/../d/f.tmp", "DIR//d/../d/f")
)calls");
  EXPECT_EQ(directory.read("/d/f"), "y\n\n");
}

// --- integrate_ndk ---

namespace {

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
    directory.write(SETUP_64, "64 {INSTALL_NOX_INSTALLDIR} {INSTALL_NOX_VERSION}\n");
    directory.write(SETUP_32, "32 {INSTALL_NOX_INSTALLDIR} {INSTALL_NOX_VERSION}\n");
    directory.write(VARIABLES_SH, "NDK='<NDK_DIR>'\n");
    directory.write(VARIABLES_CSH, "set NDK='<NDK_DIR>'\n");
    host.variables = {{"VORN_INSTALL_DIR", directory.path() + "/opt"},
                      {"NDK_COMPILER_SUBDIR", "/vorn"},
                      {"NDK_COMPILER_VERSION", "1.2"},
                      {"NDK_COMPILER_PACKAGE_NUMBER", "3"},
                      {"NDK_CNL_VERSION_FULL", "2005.3.42"},
                      {"NDK_PATH", "/ndk dir"}};
  }

  int integrate() { return integrate_ndk(&host.session); }

  std::string record() const { return directory.hidden_in(host.record()); }

  std::string working_directory() const {
    return directory.hidden_in(std::filesystem::current_path());
  }

  // The four templates as they are now, each after its name, like the call record.
  std::string templates() const {
    std::string text = "\n";
    for (const std::string& name : {SETUP_64, SETUP_32, VARIABLES_SH, VARIABLES_CSH}) {
      text += std::filesystem::path(name).filename().string() + ":\n";
      text += directory.holds(name) ? directory.read(name) : "(missing)\n";
    }
    return directory.hidden_in(text);
  }

  WorkingDirectoryKept working_directory_kept;
  TemporaryDirectory directory;
  RecordingHost host;
};

}  // namespace

TEST_F(IntegrateNdk, Enabled) {
  host.variables["NDK_INTEGRATION_ENABLED"] = "yes";
  host.command_output = "installed 100%s\nin /ndk dir\n";
  const Variables before = host.variables;

  EXPECT_EQ(integrate(), 0);

  EXPECT_EQ(record(), R"calls(
print_log("NDK_INTEGRATION: integrate_ndk()")
env_get_string("VORN_INSTALL_DIR")
env_get_string("NDK_COMPILER_SUBDIR")
path("DIR/opt/vorn/android")
env_get_string("VORN_INSTALL_DIR")
env_get_string("NDK_COMPILER_SUBDIR")
env_get_string("NDK_CNL_VERSION_FULL")
path("DIR/opt/vorn/compilers_and_libraries_2005.3.42/linux")
env_get_string("NDK_COMPILER_VERSION")
env_get_string("NDK_COMPILER_PACKAGE_NUMBER")
path("DIR/opt/vorn/android/x86_64-nox1.2.3/setup.mk")
replaceAllSubstrings("64 {INSTALL_NOX_INSTALLDIR} {INSTALL_NOX_VERSION}", "{INSTALL_NOX_INSTALLDIR}", "DIR/opt/vorn/compilers_and_libraries_2005.3.42/linux")
replaceAllSubstrings("", "{INSTALL_NOX_INSTALLDIR}", "DIR/opt/vorn/compilers_and_libraries_2005.3.42/linux")
file_move("DIR/opt/vorn/android/x86_64-nox1.2.3/setup.mk.tmp", "DIR/opt/vorn/android/x86_64-nox1.2.3/setup.mk")
path("DIR/opt/vorn/android/x86_64-nox1.2.3/setup.mk")
replaceAllSubstrings("64 DIR/opt/vorn/compilers_and_libraries_2005.3.42/linux {INSTALL_NOX_VERSION}", "{INSTALL_NOX_VERSION}", "1.2.3")
replaceAllSubstrings("", "{INSTALL_NOX_VERSION}", "1.2.3")
replaceAllSubstrings("", "{INSTALL_NOX_VERSION}", "1.2.3")
file_move("DIR/opt/vorn/android/x86_64-nox1.2.3/setup.mk.tmp", "DIR/opt/vorn/android/x86_64-nox1.2.3/setup.mk")
path("DIR/opt/vorn/android/x86-nox1.2.3/setup.mk")
replaceAllSubstrings("32 {INSTALL_NOX_INSTALLDIR} {INSTALL_NOX_VERSION}", "{INSTALL_NOX_INSTALLDIR}", "DIR/opt/vorn/compilers_and_libraries_2005.3.42/linux")
replaceAllSubstrings("", "{INSTALL_NOX_INSTALLDIR}", "DIR/opt/vorn/compilers_and_libraries_2005.3.42/linux")
file_move("DIR/opt/vorn/android/x86-nox1.2.3/setup.mk.tmp", "DIR/opt/vorn/android/x86-nox1.2.3/setup.mk")
path("DIR/opt/vorn/android/x86-nox1.2.3/setup.mk")
replaceAllSubstrings("32 DIR/opt/vorn/compilers_and_libraries_2005.3.42/linux {INSTALL_NOX_VERSION}", "{INSTALL_NOX_VERSION}", "1.2.3")
replaceAllSubstrings("", "{INSTALL_NOX_VERSION}", "1.2.3")
replaceAllSubstrings("", "{INSTALL_NOX_VERSION}", "1.2.3")
file_move("DIR/opt/vorn/android/x86-nox1.2.3/setup.mk.tmp", "DIR/opt/vorn/android/x86-nox1.2.3/setup.mk")
env_get_string("NDK_INTEGRATION_ENABLED")
env_get_string("NDK_PATH")
path("/ndk dir")
print_log("NDK_INTEGRATION: integrate_ndk(): integration enabled, launching '%s' script.", "./ndk_integration.sh \"/ndk dir\" --force")
chdir("DIR/opt/vorn/android")
get_command_output("./ndk_integration.sh \"/ndk dir\" --force", null, true, "")
print_log("Output: '%s'", "installed 100%s\nin /ndk dir\n")
path("DIR/opt/vorn/compilers_and_libraries_2005.3.42/linux/bin/compilervars_arch.sh")
replaceAllSubstrings("NDK='<NDK_DIR>'", "<NDK_DIR>", "/ndk dir")
replaceAllSubstrings("", "<NDK_DIR>", "/ndk dir")
file_move("DIR/opt/vorn/compilers_and_libraries_2005.3.42/linux/bin/compilervars_arch.sh.tmp", "DIR/opt/vorn/compilers_and_libraries_2005.3.42/linux/bin/compilervars_arch.sh")
path("DIR/opt/vorn/compilers_and_libraries_2005.3.42/linux/bin/compilervars_arch.csh")
replaceAllSubstrings("set NDK='<NDK_DIR>'", "<NDK_DIR>", "/ndk dir")
replaceAllSubstrings("", "<NDK_DIR>", "/ndk dir")
file_move("DIR/opt/vorn/compilers_and_libraries_2005.3.42/linux/bin/compilervars_arch.csh.tmp", "DIR/opt/vorn/compilers_and_libraries_2005.3.42/linux/bin/compilervars_arch.csh")
)calls");
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
  EXPECT_EQ(working_directory(), "DIR/opt/vorn/android");
  EXPECT_EQ(host.variables, before);
}

TEST_F(IntegrateNdk, Disabled) {
  const std::string before = working_directory();

  EXPECT_EQ(integrate(), 0);

  EXPECT_EQ(record(), R"calls(
print_log("NDK_INTEGRATION: integrate_ndk()")
env_get_string("VORN_INSTALL_DIR")
env_get_string("NDK_COMPILER_SUBDIR")
path("DIR/opt/vorn/android")
env_get_string("VORN_INSTALL_DIR")
env_get_string("NDK_COMPILER_SUBDIR")
env_get_string("NDK_CNL_VERSION_FULL")
path("DIR/opt/vorn/compilers_and_libraries_2005.3.42/linux")
env_get_string("NDK_COMPILER_VERSION")
env_get_string("NDK_COMPILER_PACKAGE_NUMBER")
path("DIR/opt/vorn/android/x86_64-nox1.2.3/setup.mk")
replaceAllSubstrings("64 {INSTALL_NOX_INSTALLDIR} {INSTALL_NOX_VERSION}", "{INSTALL_NOX_INSTALLDIR}", "DIR/opt/vorn/compilers_and_libraries_2005.3.42/linux")
replaceAllSubstrings("", "{INSTALL_NOX_INSTALLDIR}", "DIR/opt/vorn/compilers_and_libraries_2005.3.42/linux")
file_move("DIR/opt/vorn/android/x86_64-nox1.2.3/setup.mk.tmp", "DIR/opt/vorn/android/x86_64-nox1.2.3/setup.mk")
path("DIR/opt/vorn/android/x86_64-nox1.2.3/setup.mk")
replaceAllSubstrings("64 DIR/opt/vorn/compilers_and_libraries_2005.3.42/linux {INSTALL_NOX_VERSION}", "{INSTALL_NOX_VERSION}", "1.2.3")
replaceAllSubstrings("", "{INSTALL_NOX_VERSION}", "1.2.3")
replaceAllSubstrings("", "{INSTALL_NOX_VERSION}", "1.2.3")
file_move("DIR/opt/vorn/android/x86_64-nox1.2.3/setup.mk.tmp", "DIR/opt/vorn/android/x86_64-nox1.2.3/setup.mk")
path("DIR/opt/vorn/android/x86-nox1.2.3/setup.mk")
replaceAllSubstrings("32 {INSTALL_NOX_INSTALLDIR} {INSTALL_NOX_VERSION}", "{INSTALL_NOX_INSTALLDIR}", "DIR/opt/vorn/compilers_and_libraries_2005.3.42/linux")
replaceAllSubstrings("", "{INSTALL_NOX_INSTALLDIR}", "DIR/opt/vorn/compilers_and_libraries_2005.3.42/linux")
file_move("DIR/opt/vorn/android/x86-nox1.2.3/setup.mk.tmp", "DIR/opt/vorn/android/x86-nox1.2.3/setup.mk")
path("DIR/opt/vorn/android/x86-nox1.2.3/setup.mk")
replaceAllSubstrings("32 DIR/opt/vorn/compilers_and_libraries_2005.3.42/linux {INSTALL_NOX_VERSION}", "{INSTALL_NOX_VERSION}", "1.2.3")
replaceAllSubstrings("", "{INSTALL_NOX_VERSION}", "1.2.3")
replaceAllSubstrings("", "{INSTALL_NOX_VERSION}", "1.2.3")
file_move("DIR/opt/vorn/android/x86-nox1.2.3/setup.mk.tmp", "DIR/opt/vorn/android/x86-nox1.2.3/setup.mk")
env_get_string("NDK_INTEGRATION_ENABLED")
print_log("NDK_INTEGRATION: integrate_ndk(): integration disabled")
path("DIR/opt/vorn/compilers_and_libraries_2005.3.42/linux/bin/compilervars_arch.sh")
replaceAllSubstrings("NDK='<NDK_DIR>'", "<NDK_DIR>", "")
replaceAllSubstrings("", "<NDK_DIR>", "")
file_move("DIR/opt/vorn/compilers_and_libraries_2005.3.42/linux/bin/compilervars_arch.sh.tmp", "DIR/opt/vorn/compilers_and_libraries_2005.3.42/linux/bin/compilervars_arch.sh")
path("DIR/opt/vorn/compilers_and_libraries_2005.3.42/linux/bin/compilervars_arch.csh")
replaceAllSubstrings("set NDK='<NDK_DIR>'", "<NDK_DIR>", "")
replaceAllSubstrings("", "<NDK_DIR>", "")
file_move("DIR/opt/vorn/compilers_and_libraries_2005.3.42/linux/bin/compilervars_arch.csh.tmp", "DIR/opt/vorn/compilers_and_libraries_2005.3.42/linux/bin/compilervars_arch.csh")
)calls");
  EXPECT_EQ(templates(), R"(
setup.mk:
64 DIR/opt/vorn/compilers_and_libraries_2005.3.42/linux 1.2.3


setup.mk:
32 DIR/opt/vorn/compilers_and_libraries_2005.3.42/linux 1.2.3


compilervars_arch.sh:
NDK=''

compilervars_arch.csh:
set NDK=''

)");
  EXPECT_EQ(working_directory(), before);
}

TEST_F(IntegrateNdk, OnlyYesEnables) {
  for (const char* value : {"", "no", "Yes", "YES", "yes ", " yes", "yes;", "ye", "1", "true"}) {
    directory.write(VARIABLES_SH, "NDK='<NDK_DIR>'\n");
    host.variables["NDK_INTEGRATION_ENABLED"] = value;
    host.calls.clear();

    EXPECT_EQ(integrate(), 0);

    const auto enabled = std::find(host.calls.begin(), host.calls.end(),
                                   R"(env_get_string("NDK_INTEGRATION_ENABLED"))");
    ASSERT_GT(host.calls.end() - enabled, 1);
    EXPECT_EQ(enabled[1], R"(print_log("NDK_INTEGRATION: integrate_ndk(): integration disabled"))")
        << value;
    EXPECT_EQ(directory.read(VARIABLES_SH), "NDK=''\n\n") << value;
  }
}

// With no template there, what is left of an enabled integration is six reports and the script.
TEST_F(IntegrateNdk, NoTemplates) {
  std::filesystem::remove_all(directory.path() + "/opt/vorn");
  host.variables["NDK_INTEGRATION_ENABLED"] = "yes";
  const std::string before = working_directory();

  EXPECT_EQ(integrate(), 0);

  EXPECT_EQ(record(), R"calls(
print_log("NDK_INTEGRATION: integrate_ndk()")
env_get_string("VORN_INSTALL_DIR")
env_get_string("NDK_COMPILER_SUBDIR")
path("DIR/opt/vorn/android")
env_get_string("VORN_INSTALL_DIR")
env_get_string("NDK_COMPILER_SUBDIR")
env_get_string("NDK_CNL_VERSION_FULL")
path("DIR/opt/vorn/compilers_and_libraries_2005.3.42/linux")
env_get_string("NDK_COMPILER_VERSION")
env_get_string("NDK_COMPILER_PACKAGE_NUMBER")
path("DIR/opt/vorn/android/x86_64-nox1.2.3/setup.mk")
error("patch_text_file: cannot open input stream of file %s", "DIR/opt/vorn/android/x86_64-nox1.2.3/setup.mk")
path("DIR/opt/vorn/android/x86_64-nox1.2.3/setup.mk")
error("patch_text_file: cannot open input stream of file %s", "DIR/opt/vorn/android/x86_64-nox1.2.3/setup.mk")
path("DIR/opt/vorn/android/x86-nox1.2.3/setup.mk")
error("patch_text_file: cannot open input stream of file %s", "DIR/opt/vorn/android/x86-nox1.2.3/setup.mk")
path("DIR/opt/vorn/android/x86-nox1.2.3/setup.mk")
error("patch_text_file: cannot open input stream of file %s", "DIR/opt/vorn/android/x86-nox1.2.3/setup.mk")
env_get_string("NDK_INTEGRATION_ENABLED")
env_get_string("NDK_PATH")
path("/ndk dir")
print_log("NDK_INTEGRATION: integrate_ndk(): integration enabled, launching '%s' script.", "./ndk_integration.sh \"/ndk dir\" --force")
chdir("DIR/opt/vorn/android")
get_command_output("./ndk_integration.sh \"/ndk dir\" --force", null, true, "")
print_log("Output: '%s'", "")
path("DIR/opt/vorn/compilers_and_libraries_2005.3.42/linux/bin/compilervars_arch.sh")
error("patch_text_file: cannot open input stream of file %s", "DIR/opt/vorn/compilers_and_libraries_2005.3.42/linux/bin/compilervars_arch.sh")
path("DIR/opt/vorn/compilers_and_libraries_2005.3.42/linux/bin/compilervars_arch.csh")
error("patch_text_file: cannot open input stream of file %s", "DIR/opt/vorn/compilers_and_libraries_2005.3.42/linux/bin/compilervars_arch.csh")
)calls");
  EXPECT_EQ(working_directory(), before) << "chdir to a missing directory";
}

TEST_F(IntegrateNdk, OneTemplateMissing) {
  for (const std::string& missing : {SETUP_64, SETUP_32, VARIABLES_SH, VARIABLES_CSH}) {
    directory.write(SETUP_64, "{INSTALL_NOX_VERSION}");
    directory.write(SETUP_32, "{INSTALL_NOX_VERSION}");
    directory.write(VARIABLES_SH, "<NDK_DIR>.");
    directory.write(VARIABLES_CSH, "<NDK_DIR>.");
    std::filesystem::remove(directory.path() + missing);

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

// The calls of an enabled integration from the reading of NDK_PATH to the log line on the output.
static std::string script_record(const RecordingHost& host) {
  const auto begin =
      std::find(host.calls.begin(), host.calls.end(), R"(env_get_string("NDK_PATH"))");
  std::string text = "\n";
  for (auto call = begin; call != host.calls.end() && call < begin + 6; ++call) {
    text += *call + "\n";
  }
  return text;
}

TEST_F(IntegrateNdk, QuoteInTheNdkDirectory) {
  host.variables["NDK_INTEGRATION_ENABLED"] = "yes";
  host.variables["NDK_PATH"] = R"(/a" $(b) `c` \%s)";

  EXPECT_EQ(integrate(), 0);

  EXPECT_EQ(directory.hidden_in(script_record(host)), R"calls(
env_get_string("NDK_PATH")
path("/a\" $(b) `c` \\%s")
print_log("NDK_INTEGRATION: integrate_ndk(): integration enabled, launching '%s' script.", "./ndk_integration.sh \"/a\" $(b) `c` \\%s\" --force")
chdir("DIR/opt/vorn/android")
get_command_output("./ndk_integration.sh \"/a\" $(b) `c` \\%s\" --force", null, true, "")
print_log("Output: '%s'", "")
)calls");
  EXPECT_EQ(directory.read(VARIABLES_SH), "NDK='/a\" $(b) `c` \\%s'\n\n");
}

TEST_F(IntegrateNdk, UnsetNdkPath) {
  host.variables["NDK_INTEGRATION_ENABLED"] = "yes";
  host.variables.erase("NDK_PATH");
  host.normalise = [](const std::string& p) { return p.empty() ? "." : p; };

  EXPECT_EQ(integrate(), 0);

  EXPECT_EQ(directory.hidden_in(script_record(host)), R"calls(
env_get_string("NDK_PATH")
path("")
print_log("NDK_INTEGRATION: integrate_ndk(): integration enabled, launching '%s' script.", "./ndk_integration.sh \".\" --force")
chdir("DIR/opt/vorn/android")
get_command_output("./ndk_integration.sh \".\" --force", null, true, "")
print_log("Output: '%s'", "")
)calls");
  EXPECT_EQ(templates(), R"(
setup.mk:
64 DIR/opt/vorn/compilers_and_libraries_2005.3.42/linux 1.2.3


setup.mk:
32 DIR/opt/vorn/compilers_and_libraries_2005.3.42/linux 1.2.3


compilervars_arch.sh:
NDK='.'

compilervars_arch.csh:
set NDK='.'

)");
}

// What the shell says of a missing script is output like any other.
TEST_F(IntegrateNdk, MissingScript) {
  host.variables["NDK_INTEGRATION_ENABLED"] = "yes";
  host.command_output = "sh: 1: ./ndk_integration.sh: not found\n";

  EXPECT_EQ(integrate(), 0);

  EXPECT_EQ(directory.hidden_in(script_record(host)), R"calls(
env_get_string("NDK_PATH")
path("/ndk dir")
print_log("NDK_INTEGRATION: integrate_ndk(): integration enabled, launching '%s' script.", "./ndk_integration.sh \"/ndk dir\" --force")
chdir("DIR/opt/vorn/android")
get_command_output("./ndk_integration.sh \"/ndk dir\" --force", null, true, "")
print_log("Output: '%s'", "sh: 1: ./ndk_integration.sh: not found\n")
)calls");
  EXPECT_EQ(directory.read(VARIABLES_CSH), "set NDK='/ndk dir'\n\n");
}

// What path answers is the file that is patched, each time it is asked.
TEST_F(IntegrateNdk, FilesThatPathNames) {
  directory.write("/staged1", "{INSTALL_NOX_INSTALLDIR}");
  directory.write("/staged2", "{INSTALL_NOX_VERSION}");
  directory.write("/staged3", "{INSTALL_NOX_INSTALLDIR}");
  directory.write("/staged4", "{INSTALL_NOX_VERSION}");
  directory.write("/staged5", "<NDK_DIR>");
  directory.write("/staged6", "<NDK_DIR>");
  int calls = 0;
  host.normalise = [&](const std::string& p) {
    const std::string extension = std::filesystem::path(p).extension();
    const bool is_template = extension == ".mk" || extension == ".sh" || extension == ".csh";
    return is_template ? directory.path() + "/staged" + std::to_string(++calls) : "<" + p + ">";
  };
  host.variables["NDK_INTEGRATION_ENABLED"] = "yes";
  const std::string before = templates();

  EXPECT_EQ(integrate(), 0);

  const std::string compiler = "<DIR/opt/vorn/compilers_and_libraries_2005.3.42/linux>\n\n";
  EXPECT_EQ(directory.hidden_in(directory.read("/staged1")), compiler);
  EXPECT_EQ(directory.read("/staged2"), "1.2.3\n\n");
  EXPECT_EQ(directory.hidden_in(directory.read("/staged3")), compiler);
  EXPECT_EQ(directory.read("/staged4"), "1.2.3\n\n");
  EXPECT_EQ(directory.read("/staged5"), "</ndk dir>\n\n");
  EXPECT_EQ(directory.read("/staged6"), "</ndk dir>\n\n");
  EXPECT_EQ(templates(), before);
}

TEST_F(IntegrateNdk, StatusOfTheNdkIsNotLookedAt) {
  host.variables["NDK_INTEGRATION_ENABLED"] = "yes";
  host.variables["NDK_PATH_STATUS"] = "nok";

  EXPECT_EQ(integrate(), 0);

  EXPECT_EQ(directory.read(VARIABLES_SH), "NDK='/ndk dir'\n\n");
}

TEST_F(IntegrateNdk, SecondRun) {
  host.variables["NDK_INTEGRATION_ENABLED"] = "yes";
  EXPECT_EQ(integrate(), 0);
  host.variables["NDK_PATH"] = "/other";
  host.calls.clear();

  EXPECT_EQ(integrate(), 0);

  EXPECT_EQ(directory.hidden_in(script_record(host)), R"calls(
env_get_string("NDK_PATH")
path("/other")
print_log("NDK_INTEGRATION: integrate_ndk(): integration enabled, launching '%s' script.", "./ndk_integration.sh \"/other\" --force")
chdir("DIR/opt/vorn/android")
get_command_output("./ndk_integration.sh \"/other\" --force", null, true, "")
print_log("Output: '%s'", "")
)calls");
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

  EXPECT_EQ(host.record(), R"calls(
print_log("NDK_INTEGRATION: unintegrate_ndk() NOT IMPLEMENTED")
)calls");
  EXPECT_EQ(host.variables, before);
}
