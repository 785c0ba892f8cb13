// The console host's own choices in what it gives the plug-in.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "console_host/base/errors.h"
#include "console_host/base/escaping.h"
#include "console_host/base/paths.h"
#include "console_host/package/installation_file.h"
#include "console_host/services/log.h"
#include "console_host/services/service_observer.h"
#include "console_host/services/session.h"
#include "host/host.h"
#include "tests/temporary_directory.h"
#include "tests/texts.h"

using namespace ndk_integrate;  // NOLINT(google-build-using-namespace)

namespace {

namespace fs = std::filesystem;

using Texts = std::vector<std::string>;

// A text that holds NUL characters.
template <std::size_t N>
std::string bytes(const char (&text)[N]) {
  return {text, N - 1};
}

constexpr uid_t kNobody = 65534;

// Runs `act` as an ordinary user, whoever runs the tests.
template <typename Act>
void as_ordinary_user(const Act& act) {
  const bool is_root = geteuid() == 0;
  if (is_root && seteuid(kNobody) != 0) {
    throw std::runtime_error("cannot become an ordinary user");
  }
  act();
  if (is_root && seteuid(0) != 0) {
    std::abort();
  }
}

// Makes `name` in `top`, which it opens to all, a directory of this mode and owner.
std::string make_directory(const TemporaryDirectory& top, const std::string& name, mode_t mode,
                           uid_t owner) {
  const std::string path = top.path() + name;
  fs::create_directory(path);
  if (chmod(top.path().c_str(), 0755) != 0 || chmod(path.c_str(), mode) != 0 ||
      chown(path.c_str(), owner, static_cast<gid_t>(-1)) != 0) {
    throw std::runtime_error("cannot prepare " + path);
  }
  return path;
}

mode_t mode_of(const std::string& file) {
  struct stat status {};
  return stat(file.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

// What the log shows on standard error while `act` runs.
template <typename Act>
std::string logged(const Act& act) {
  log_to_standard_error();
  testing::internal::CaptureStderr();
  act();
  return testing::internal::GetCapturedStderr();
}

// --- path ---

TEST(Path, Forms) {
  const std::vector<std::pair<std::string, Texts>> rows = {
      {"", {""}},
      {"/", {"/", "//", "////"}},
      {"a", {"a", "a/", "a//"}},
      {"/a", {"/a", "//a"}},
      {"/a/b", {"/a/b"}},
      {"/a/b/c", {"/a//b///c/"}},
      {"/a b/ c ", {"/a b/ c "}},
      {".", {".", "./"}},
      {"..", {"../"}},
      {"./a", {"./a"}},
      {"/a/./b", {"/a/./b"}},
      {"/a/../b", {"/a/../b"}},
      {"a\\/b", {"a\\/b"}},
      {bytes("a\0/b"), {bytes("a\0//b")}},
  };
  for (const auto& [normal, forms] : rows) {
    for (const std::string& form : forms) {
      EXPECT_EQ(path(form), normal) << form;
    }
  }
}

TEST(Path, LinkNotResolved) {
  const TemporaryDirectory dir;
  fs::create_directory(dir.path() + "/real");
  fs::create_directory_symlink("real", dir.path() + "/link");
  EXPECT_EQ(path(dir.path() + "//link/"), dir.path() + "/link");
}

// --- splitString ---

TEST(SplitString, Forms) {
  struct Row {
    std::string text;
    std::string separator;
    Texts pieces;
  };
  const std::vector<Row> rows = {
      {"", ";", {}},
      {";", ";", {}},
      {";;", ";", {}},
      {"a", ";", {"a"}},
      {"a;b;c", ";", {"a", "b", "c"}},
      {"a;;b", ";", {"a", "b"}},
      {";a", ";", {"a"}},
      {"a;", ";", {"a"}},
      {" ; a", ";", {" ", " a"}},
      {"11.2.2725575", ".", {"11", "2", "2725575"}},
      {"a.b", ";", {"a.b"}},
      {"a::b:c::", "::", {"a", "b:c"}},
      {"a:::b", "::", {"a", ":b"}},
      {"a;b", "", {"a;b"}},
      {"", "", {}},
      {bytes("a\0;b"), ";", {bytes("a\0"), "b"}},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(splitString(row.text, row.separator, false), row.pieces) << row.text;
  }
}

// --- replaceAllSubstrings ---

TEST(ReplaceAllSubstrings, Forms) {
  struct Row {
    std::string text;
    std::string from;
    std::string to;
    std::string result;
  };
  const std::vector<Row> rows = {
      {"", "a", "b", ""},
      {"none here", "X", "y", "none here"},
      {"<NDK_DIR>", "<NDK_DIR>", "/ndk dir", "/ndk dir"},
      {"<NDK_DIR>:<NDK_DIR>", "<NDK_DIR>", "", ":"},
      {"a<NDK_DIR>b", "<NDK_DIR>", "<NDK_DIR>", "a<NDK_DIR>b"},
      {"aXbX", "X", "XX", "aXXbXX"},
      {"XX", "X", "y", "yy"},
      {"aaa", "aa", "b", "ba"},
      {"abab", "aba", "x", "xb"},
      {"ab", "abc", "x", "ab"},
      {"abc", "", "x", "abc"},
      {"a%sb", "%s", "%n", "a%nb"},
      {"ab", "a", "1\n2", "1\n2b"},
      {bytes("a\0b\0"), bytes("\0"), "0", "a0b0"},
      {bytes("aX\0c"), "X", bytes("\0y"), bytes("a\0y\0c")},
      {"a\r", "a", "b", "b\r"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(replaceAllSubstrings(row.text, row.from, row.to), row.result) << row.text;
  }
}

// --- strtoint, inttostr ---

TEST(Strtoint, Forms) {
  const std::vector<std::pair<int, Texts>> rows = {
      {0, {"0", "", " ", "r11", "- 7", "--7", "0x10"}},
      {1, {"1e3", bytes("1\0002")}},
      {2, {" 2", " \t 2"}},
      {3, {"3 "}},
      {7, {"+7", "007"}},
      {-7, {"-7"}},
      {11, {"11"}},
      {2725575, {"2725575-beta4"}},
      {INT_MAX, {"2147483647", "2147483648", "4294967297", "99999999999999999999999"}},
      {INT_MIN, {"-2147483648", "-2147483649", "-99999999999999999999999"}},
  };
  for (const auto& [number, texts] : rows) {
    for (const std::string& text : texts) {
      EXPECT_EQ(strtoint(text), number) << text;
    }
  }
}

TEST(Inttostr, Forms) {
  const std::vector<std::pair<long long, std::string>> rows = {
      {0, "0"},
      {-1, "-1"},
      {2005, "2005"},
      {LLONG_MAX, "9223372036854775807"},
      {LLONG_MIN, "-9223372036854775808"},
  };
  for (const auto& [number, text] : rows) {
    EXPECT_EQ(inttostr(number), text);
  }
}

// --- IniDb ---

constexpr const char* kRevision = "Pkg.Revision ";  // as the plug-in asks for it

std::string value_in(const std::string& content, const std::string& key = kRevision,
                     const std::string& separator = "=") {
  const TemporaryDirectory dir;
  dir.write("/source.properties", content);
  return IniDb(dir.path(), "source.properties", separator).value(key);
}

TEST(IniDb, Forms) {
  struct Row {
    const char* name;
    std::string content;
    std::string value;
  };
  const std::vector<Row> rows = {
      {"r11 and later", "Pkg.Desc = Android NDK\nPkg.Revision = 11.2.2725575\n", "11.2.2725575"},
      {"since r26d",
       "Pkg.Desc = Android NDK\nPkg.Revision = 29.0.14033849-beta4\n"
       "Pkg.BaseRevision = 29.0.14033849\nPkg.ReleaseName = r29-beta4\n",
       "29.0.14033849-beta4"},
      {"rewritten by an old SDK manager",
       "### Android Tool: Source of this archive.\n#Tue Mar 22 11:04:54 EDT 2016\n"
       "Archive.HostBits=64\nArchive.HostOs=linux\nPkg.Desc=Android NDK\nPkg.Revision=11\n"
       "Pkg.SourceUrl=https\\://example.com/ndk.xml\n",
       "11"},
      {"no final newline", "Pkg.Desc = Android NDK\nPkg.Revision = 11.2.4", "11.2.4"},
      {"CRLF", "Pkg.Desc = Android NDK\r\nPkg.Revision = 11.2.4\r\n", "11.2.4"},
      {"CRLF, no final newline", "Pkg.Revision = 11.2.4\r", "11.2.4"},
      {"tabs and blanks", " \tPkg.Revision\t =\t 11.2.4 \t\n", "11.2.4"},
      {"blanks inside a value", "Pkg.Revision = 11 . 2\n", "11 . 2"},
      {"separator in a value", "Pkg.Revision = a = b\n", "a = b"},
      {"commented out", "#Pkg.Revision = 1.1.1\n  # Pkg.Revision = 2.2.2\n!Pkg.Revision = 3.3.3\n",
       ""},
      {"comment before", "#Pkg.Revision = 1.1.1\nPkg.Revision = 11.2.4\n", "11.2.4"},
      {"empty value", "Pkg.Revision =\n", ""},
      {"no separator", "Pkg.Revision 11.2.4\n", ""},
      {"empty lines", "\n\r\n \nPkg.Revision = 11.2.4\n\n", "11.2.4"},
      {"other keys that hold it", "xPkg.Revision = 1\nPkg.RevisionX = 2\nPkg.Revision X = 3\n", ""},
      {"other letter case", "pkg.revision = 11.2.4\n", ""},
      {"twice", "Pkg.Revision = 11.2.4\nPkg.Revision = 12.0.0\n", "11.2.4"},
      {"empty file", "", ""},
      {"NUL", bytes("Pkg.Desc = a\0b\nPkg.Revision = 11.2.4\n"), "11.2.4"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(value_in(row.content), row.value) << row.name;
  }
}

TEST(IniDb, KeyTrimmedAlike) {
  for (const char* key : {"Pkg.Revision", "Pkg.Revision ", " Pkg.Revision", "\tPkg.Revision \r"}) {
    EXPECT_EQ(value_in("Pkg.Revision = 11.2.4\n", key), "11.2.4") << key;
    EXPECT_EQ(value_in("Pkg.Revision=11.2.4\n", key), "11.2.4") << key;
  }
}

TEST(IniDb, OtherKeysAndSeparators) {
  EXPECT_EQ(value_in("#Pkg.Revision = 11.2.4\n", "#Pkg.Revision"), "") << "a comment is not a key";
  EXPECT_EQ(value_in(" !Pkg.Revision = 11.2.4\n", "!Pkg.Revision"), "") << "a comment is not a key";
  EXPECT_EQ(value_in("a = 1: b\nc: d = 2\n", "c", ":"), "d = 2");
  EXPECT_EQ(value_in("k:ey := value\n", "k:ey", ":="), "value");
}

TEST(IniDb, SeveralKeys) {
  const TemporaryDirectory dir;
  dir.write("/p", "a = 1\nb = 2\n");
  IniDb properties(dir.path(), "p", "=");
  EXPECT_EQ((Texts{properties.value("b"), properties.value("a"), properties.value("c"),
                   properties.value("b"), properties.value("")}),
            (Texts{"2", "1", "", "2", ""}));
}

TEST(IniDb, Directories) {
  const TemporaryDirectory dir;
  dir.write("/directory/p", "a = 1\n");
  EXPECT_EQ(IniDb(dir.path() + "/directory/", "p", "=").value("a"), "1");
  EXPECT_EQ(IniDb(dir.path(), "missing", "=").value("a"), "");
  EXPECT_EQ(IniDb(dir.path(), "directory", "=").value("a"), "");
  EXPECT_EQ(IniDb(dir.path() + "/missing", "p", "=").value("a"), "");
}

// --- file_exists ---

TEST(FileExists, Kinds) {
  const TemporaryDirectory dir;
  dir.write("/file", "text");
  dir.write("/empty", "");
  fs::create_directory(dir.path() + "/directory");
  fs::create_symlink("file", dir.path() + "/link");
  fs::create_symlink("directory", dir.path() + "/directory link");
  fs::create_symlink("nowhere", dir.path() + "/dangling link");
  ASSERT_EQ(mkfifo((dir.path() + "/fifo").c_str(), 0600), 0);
  const auto expect_there = [&dir](const Texts& names, bool file, bool file_or_directory) {
    for (const std::string& name : names) {
      EXPECT_EQ(file_exists(dir.path() + name, false) != 0, file) << name;
      EXPECT_EQ(file_exists(dir.path() + name, true) != 0, file_or_directory) << name;
    }
  };
  expect_there({"/file", "/empty", "/link"}, true, true);
  expect_there({"/directory", "/directory link"}, false, true);
  expect_there({"/dangling link", "/fifo", "/missing", "/file/below", "/file/"}, false, false);
  EXPECT_EQ(file_exists("", false), 0);
  EXPECT_EQ(file_exists("", true), 0);
}

// --- is_writable ---

TEST(IsWritable, Modes) {
  const std::vector<std::pair<mode_t, bool>> rows = {{0700, true},  {0300, true},  {0500, false},
                                                     {0600, false}, {0200, false}, {0077, false}};
  for (const auto& [mode, writable] : rows) {
    const TemporaryDirectory top;
    const std::string dir = make_directory(top, "/dir", mode, geteuid() == 0 ? kNobody : geteuid());
    bool answer = false;
    as_ordinary_user([&] { answer = is_writable(dir) != 0; });
    EXPECT_EQ(answer, writable) << std::oct << mode;
    chmod(dir.c_str(), 0700);  // so that it can be removed
  }
}

TEST(IsWritable, DirectoryOfAnotherUser) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can make a directory that is not its own";
  }
  const TemporaryDirectory top;
  const std::string dir = make_directory(top, "/dir", 0755, 0);
  as_ordinary_user([&] { EXPECT_EQ(is_writable(dir), 0); });
}

TEST(IsWritable, OtherThings) {
  const TemporaryDirectory dir;
  fs::create_directory(dir.path() + "/directory");
  fs::create_symlink("directory", dir.path() + "/link");
  dir.write("/file", "text");
  fs::permissions(dir.path() + "/file", fs::perms::all);
  EXPECT_NE(is_writable(dir.path() + "/link"), 0);
  EXPECT_EQ(is_writable(dir.path() + "/file"), 0);
  EXPECT_EQ(is_writable(dir.path() + "/missing"), 0);
  EXPECT_EQ(is_writable(""), 0);
}

// --- file_move ---

// "/from", which holds "new", and "/to", what it is moved to.
class FileMove : public testing::Test {
 protected:
  FileMove() {
    dir.write("/from", "new");
    chmod(from.c_str(), 0640);
  }

  void replace() {
    EXPECT_NE(file_move(from, to), 0);
    EXPECT_FALSE(dir.holds("/from"));
  }

  // A move that fails for this reason.
  void fail(const std::string& reason) {
    const std::string log = logged([&] { EXPECT_EQ(file_move(from, to), 0); });
    EXPECT_EQ(dir.hidden_in(log), "ERROR: cannot move DIR/from to DIR/to: " + reason + "\n");
  }

  TemporaryDirectory dir;
  std::string from = dir.path() + "/from";
  std::string to = dir.path() + "/to";
};

TEST_F(FileMove, ModeOfReplacedFileKept) {
  for (const mode_t mode : {0600U, 0644U, 0755U, 0444U, 0000U, 04755U, 02750U}) {
    dir.write("/from", "new");
    dir.write("/to", "old");
    chmod(to.c_str(), mode);
    replace();
    EXPECT_EQ(mode_of(to), mode) << std::oct << mode;
    chmod(to.c_str(), 0600);
    EXPECT_EQ(dir.read("/to"), "new");
  }
}

TEST_F(FileMove, OwnerOfReplacedFileKept) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can give a file away";
  }
  dir.write("/to", "old");
  ASSERT_EQ(chown(to.c_str(), 1234, 4321), 0);
  ASSERT_EQ(chmod(to.c_str(), 06755), 0);
  replace();
  struct stat status {};
  ASSERT_EQ(stat(to.c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, 1234U);
  EXPECT_EQ(status.st_gid, 4321U);
  EXPECT_EQ(mode_of(to), 06755U);
}

TEST_F(FileMove, NothingReplaced) {
  replace();
  EXPECT_EQ(dir.read("/to"), "new");
  EXPECT_EQ(mode_of(to), 0640U);
}

TEST_F(FileMove, LinkReplaced) {
  dir.write("/target", "old");
  fs::create_symlink("target", to);
  replace();
  EXPECT_FALSE(fs::is_symlink(to));
  EXPECT_EQ(dir.read("/to"), "new");
  EXPECT_EQ(dir.read("/target"), "old");
}

TEST_F(FileMove, MissingSource) {
  dir.write("/to", "old");
  fs::remove(from);
  fail("No such file or directory");
  EXPECT_EQ(dir.read("/to"), "old");
}

TEST_F(FileMove, DirectoryAsTarget) {
  dir.write("/to/inside", "old");
  chmod(to.c_str(), 0755);
  fail("Is a directory");
  EXPECT_EQ(dir.read("/from"), "new");
  EXPECT_EQ(mode_of(from), 0640U);
  EXPECT_EQ(dir.read("/to/inside"), "old");
}

// --- get_command_output ---

using Ran = std::pair<int, std::string>;  // exit status and output

Ran ran(const std::string& command) {
  int status = -1;
  const std::string output = get_command_output(command, &status, true, "");
  return {status, output};
}

TEST(GetCommandOutput, Commands) {
  const std::vector<std::pair<std::string, Ran>> rows = {
      {"echo text", {0, "text\n"}},
      {"printf 'no line end'", {0, "no line end"}},
      {":", {0, ""}},
      {"", {0, ""}},
      {"exit 7", {7, ""}},
      {"false; echo after", {0, "after\n"}},
      {"echo before; exit 255", {255, "before\n"}},
      {"kill -KILL $$", {137, ""}},
      {"echo out; echo err >&2; echo out again", {0, "out\nerr\nout again\n"}},
      {"cat; echo end of input", {0, "end of input\n"}},
      {R"(printf 'a\000b')", {0, bytes("a\0b")}},
      {"printf '%s' \"a  b\" '$HOME'", {0, "a  b$HOME"}},
  };
  for (const auto& [command, expected] : rows) {
    EXPECT_EQ(ran(command), expected) << command;
  }
}

TEST(GetCommandOutput, MissingCommand) {
  const auto [status, output] = ran("./there-is-no-such-command");
  EXPECT_EQ(status, 127);
  EXPECT_TRUE(holds(output, "./there-is-no-such-command")) << output;
}

TEST(GetCommandOutput, ArgumentsWithoutMeaning) {
  EXPECT_EQ(get_command_output("exit 7", nullptr, true, ""), "");
  EXPECT_EQ(get_command_output("cat; echo text", nullptr, false, "anything"), "text\n");
}

TEST(GetCommandOutput, OneMegabyte) {
  const auto [status, output] = ran("head -c 1048576 /dev/zero | tr '\\0' x");
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(output == std::string(1048576, 'x')) << output.size();
}

TEST(GetCommandOutput, WorkingDirectory) {
  const TemporaryDirectory dir;
  const WorkingDirectoryKept kept;
  fs::current_path(dir.path());
  EXPECT_EQ(ran("pwd").second, dir.path() + "\n");
}

TEST(GetCommandOutput, Environment) {
  ASSERT_EQ(setenv("CONSOLE_SERVICES_TEST", "two  blanks", 1), 0);
  EXPECT_EQ(ran("printf '%s' \"$CONSOLE_SERVICES_TEST\"").second, "two  blanks");
  unsetenv("CONSOLE_SERVICES_TEST");
}

// What a process left behind prints later does not belong to the output, and is not waited for.
TEST(GetCommandOutput, BackgroundProcessThatPrints) {
  const TemporaryDirectory dir;
  const std::string fifo = dir.path() + "/fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_EQ(ran("{ read line; echo \"late: $line\"; } <" + fifo + " & echo early"),
            Ran(0, "early\n"));
  std::ofstream(fifo) << "go\n";  // waits for its reader
}

// One that gave its outputs away is not waited for: it cannot end before the line that is written
// after the command returned.
TEST(GetCommandOutput, BackgroundProcessThatIsSilent) {
  const TemporaryDirectory dir;
  const std::string fifo = dir.path() + "/fifo";
  const std::string answer = dir.path() + "/answer";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  ASSERT_EQ(mkfifo(answer.c_str(), 0600), 0);
  EXPECT_EQ(
      ran("{ read line <" + fifo + "; echo $line >" + answer + "; } >/dev/null 2>&1 & echo early"),
      Ran(0, "early\n"));
  std::ofstream(fifo) << "go\n";  // waits for its reader
  EXPECT_EQ(dir.read("/answer"), "go\n");
}

TEST(GetCommandOutput, NoDescriptorLeft) {
  const auto open_descriptors = [] {
    return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
  };
  ran("true");
  const auto before = open_descriptors();
  ran("echo text");
  ran("./there-is-no-such-command");
  EXPECT_EQ(open_descriptors(), before);
}

// --- print_log, error ---

TEST(PrintLog, OneLineACall) {
  const std::string log = logged([] {
    print_log("plain");
    print_log("%s", "");
    print_log("'%s' in '%s'", "-ndk-", "nox-ndk-5");
    print_log("%s", "a percent sign: 100%s %n");
    print_log("100%%");
  });
  EXPECT_EQ(log, "plain\n\n'-ndk-' in 'nox-ndk-5'\na percent sign: 100%s %n\n100%\n");
}

TEST(PrintLog, ControlCharacters) {
  const std::string log = logged([] {
    print_log("Output: '%s'", "one\ntwo\r\n\tthree\n");
    print_log("%s", "\x1b[31mred\x1b[0m \x01\x1f\x7f\a\b");
    print_log("%s", "caf\xc3\xa9 \\n");
  });
  EXPECT_EQ(log,
            "Output: 'one\\ntwo\\r\\n\\tthree\\n'\n"
            "\\x1b[31mred\\x1b[0m \\x01\\x1f\\x7f\\x07\\x08\n"
            "caf\xc3\xa9 \\n\n");
}

TEST(PrintLog, LongLine) {
  const std::string text(100000, 'x');
  EXPECT_EQ(logged([&] { print_log("<%s>", text.c_str()); }), "<" + text + ">\n");
}

TEST(PrintLog, Paused) {
  const std::string log = logged([] {
    print_log("one");
    {
      const HeldLog outer;
      print_log("not this");
      {
        const HeldLog inner;
        error("nor this");
      }
      print_log("still not");
    }
    print_log("two");
  });
  EXPECT_EQ(log, "one\ntwo\n");
}

TEST(Error, OneLineACall) {
  const std::string log = logged([] {
    error("cannot open %s", "/a\nb");
    error("again");
  });
  EXPECT_EQ(log, "ERROR: cannot open /a\\nb\nERROR: again\n");
}

TEST(LogFile, Appended) {
  const TemporaryDirectory dir;
  dir.write("/log", "an older line\n");
  EXPECT_THROW(log_to_file(dir.path() + "/missing/log"), UsageError);
  log_to_file(dir.path() + "/log");
  print_log("%s", "new\nline");
  error("%s", "wrong");
  EXPECT_EQ(dir.read("/log"), "an older line\nnew\\nline\nERROR: wrong\n");
  EXPECT_TRUE(log_is_complete());
}

TEST(OneLine, EveryByte) {
  for (int code = 0; code < 256; ++code) {
    const std::string line = one_line(std::string(1, static_cast<char>(code)));
    const bool control = code < 0x20 || code == 0x7f;
    EXPECT_EQ(line.size() > 1, control) << code;
    EXPECT_EQ(line[0], control ? '\\' : static_cast<char>(code)) << code;
  }
  EXPECT_EQ(one_line(bytes("\0\t\n\r\x1b\x7f")), "\\x00\\t\\n\\r\\x1b\\x7f");
}

TEST(OneLine, ControlCharactersBeyondAscii) {
  EXPECT_EQ(one_line("\xc2\x80|\xc2\x9f|\xc2\xa0|\xc3\x80"),
            "\\xc2\\x80|\\xc2\\x9f|\xc2\xa0|\xc3\x80");
}

// What is no character of UTF-8 stands as U+FFFD and two digits, byte by byte.
TEST(Utf8Text, FirstAndLastOfEachKind) {
  const std::string odd = "\xef\xbf\xbd";
  for (const char* text : {"\x7f", "\xc2\x80", "\xdf\xbf", "\xe0\xa0\x80", "\xed\x9f\xbf",
                           "\xee\x80\x80", "\xf0\x90\x80\x80", "\xf4\x8f\xbf\xbf"}) {
    EXPECT_EQ(utf8_text(text), text);
  }
  for (const auto& [text, told] : {
           std::pair("\x80", odd + "80"),
           std::pair("\xc1\xbf", odd + "c1" + odd + "bf"),
           std::pair("\xe0\x9f\xbf", odd + "e0" + odd + "9f" + odd + "bf"),
           std::pair("\xed\xa0\x80", odd + "ed" + odd + "a0" + odd + "80"),
           std::pair("\xf0\x8f\xbf\xbf", odd + "f0" + odd + "8f" + odd + "bf" + odd + "bf"),
           std::pair("\xf4\x90\x80\x80", odd + "f4" + odd + "90" + odd + "80" + odd + "80"),
           std::pair("\xf5", odd + "f5"),
       }) {
    EXPECT_EQ(utf8_text(text), told);
  }
}

// --- session variables and components ---

TEST(SessionVariables, BothFormsOneStore) {
  Session session(Installation{});
  session_t* const handle = session.handle();
  const auto value = [&] { return env_get_string(handle, "NDK_PATH"); };
  EXPECT_EQ(value(), "");
  env_set_string(handle, "NDK_PATH", "literal");
  EXPECT_EQ(value(), "literal");
  env_set_string(handle, std::string("NDK_PATH"), std::string("computed"));
  EXPECT_EQ(value(), "computed");
  env_set_string(handle, "NDK_PATH", "");
  EXPECT_EQ(value(), "");
  env_set_string(handle, std::string("NDK_PATH"), std::string("again"));
  env_set_string(handle, std::string("NDK_PATH"), std::string());
  EXPECT_EQ(value(), "");
  EXPECT_EQ(env_get_string(handle, "NDK_PATH_STATUS"), "");
}

TEST(SessionVariables, FromInstallation) {
  Installation installation;
  installation.session["NDK_SUPPORTED_VERSIONS"] = "r11;r11c";
  Session session(installation);
  EXPECT_EQ(env_get_string(session.handle(), "NDK_SUPPORTED_VERSIONS"), "r11;r11c");
  EXPECT_EQ(session.get("NDK_SUPPORTED_VERSIONS"), "r11;r11c");
  EXPECT_EQ(installation.session.size(), 1U);
}

TEST(SessionVariables, TwoSessionsApart) {
  Session one(Installation{});
  Session two(Installation{});
  env_set_string(one.handle(), "NDK_PATH", "one");
  env_set_string(two.handle(), "NDK_PATH", "two");
  EXPECT_EQ(one.get("NDK_PATH"), "one");
  EXPECT_EQ(two.get("NDK_PATH"), "two");
}

TEST(Components, AsInTheInstallation) {
  Installation installation;
  installation.components = {{"b", "5.0.3", "42", "/cc", true, false},
                             {"a", "1.2.3", "4", "", false, true}};
  Session session(installation);
  EXPECT_TRUE(Session(Installation{}).handle()->tsd.components().empty());
  Texts seen;
  for (Component* component : session.handle()->tsd.components()) {
    seen.insert(seen.end(),
                {component->id, component->version, component->packageNumber, component->subdir(),
                 component->installCondition() ? "installable" : "not installable",
                 component->getSelected() ? "selected" : "not selected"});
  }
  EXPECT_EQ(seen, (Texts{"b", "5.0.3", "42", "/cc", "installable", "not selected",  //
                         "a", "1.2.3", "4", "", "not installable", "selected"}));
}

TEST(Components, CompilerIsTheOneAskedForItsSubdir) {
  Installation installation;
  installation.components = {{"a", "", "", "", true, true}, {"b", "", "", "", true, true}};
  Session session(installation);
  EXPECT_EQ(session.compiler_info(), nullptr);
  Component* const second = session.handle()->tsd.components()[1];
  second->getSelected();
  second->installCondition();
  EXPECT_EQ(session.compiler_info(), nullptr);
  second->subdir();
  EXPECT_EQ(session.compiler_info()->id, "b");
}

// --- What the services tell their observer ---

// Notes what it is told, one text each, and answers as it is set to.
class RecordingObserver : public ServiceObserver {
 public:
  std::string path_asked(const std::string& path) override { return note("path " + path); }
  void replaced(const std::string& line, const std::string& from, std::size_t count,
                const std::string& result) override {
    note("replaced " + std::to_string(count) + " " + from + " in " + line + ": " + result);
  }
  void moved(const std::string& to, bool done) override {
    note((done ? "moved " : "not moved ") + to.substr(to.rfind('/')));
  }
  void open_failed() override { note("open failed"); }
  bool may_run(const std::string& command) override {
    note("may run " + command);
    return runs;
  }
  void ran(const std::string& command, const ProcessResult& result) override {
    note("ran " + command + ": " + std::to_string(result.exit_status) + " " + result.output);
  }
  std::string log_line(std::string line) const override { return "real " + line; }

  bool runs = true;
  Texts told;

 private:
  std::string note(const std::string& text) {
    told.push_back(text);
    return text;
  }
};

TEST(ObservedServices, EachTellsWhatItIsAsked) {
  const TemporaryDirectory dir;
  dir.write("/from", "");
  RecordingObserver observer;
  const ObservedServices observed(observer);
  EXPECT_EQ(path("//a//"), "path /a");
  EXPECT_EQ(replaceAllSubstrings("XXZ", "X", "y"), "yyZ");
  file_move(dir.path() + "/from", dir.path() + "/to");
  logged([&] { file_move(dir.path() + "/from", dir.path() + "/to"); });
  EXPECT_EQ(logged([] { error("cannot open %s", "it"); }), "real ERROR: cannot open it\n");
  EXPECT_EQ(get_command_output("echo failing; exit 7", nullptr, true, ""), "failing\n");
  EXPECT_EQ(observer.told, (Texts{"path /a", "replaced 2 X in XXZ: yyZ", "moved /to",
                                  "not moved /to", "open failed", "may run echo failing; exit 7",
                                  "ran echo failing; exit 7: 7 failing\n"}));
}

TEST(ObservedServices, CommandThatMustNotRun) {
  const TemporaryDirectory dir;
  RecordingObserver observer;
  observer.runs = false;
  const ObservedServices observed(observer);
  EXPECT_EQ(get_command_output("touch " + dir.path() + "/ran", nullptr, true, ""), "");
  EXPECT_FALSE(fs::exists(dir.path() + "/ran"));
}

TEST(ObservedServices, OneAtATime) {
  RecordingObserver first;
  RecordingObserver second;
  EXPECT_EQ(service_observer(), nullptr);
  {
    const ObservedServices observed(first);
    EXPECT_THROW(ObservedServices{second}, std::logic_error);
    EXPECT_EQ(service_observer(), &first);
  }
  EXPECT_EQ(service_observer(), nullptr);
}

}  // namespace
