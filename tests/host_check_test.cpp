// The host check on a host that keeps the contract, and on the same host with one point broken at a
// time: it must name that point and no other.
#include <dlfcn.h>
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "host_check/checks.h"
#include "tests/broken_hosts/good_host.h"
#include "tests/temporary_directory.h"

namespace fs = std::filesystem;

namespace {

using CheckHost = int (*)(session_t*);

// The library itself, loaded as a host loads it.
CheckHost check_host_of_library() {
  void* library = dlopen(HOST_CHECK_LIBRARY, RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    throw std::runtime_error(std::string("cannot load the host check: ") + dlerror());
  }
  return reinterpret_cast<CheckHost>(dlsym(library, "check_host"));
}

// What to run the host check on.
struct World {
  std::string broken;           // the point that the host breaks
  bool other_choices = false;   // GoodHost::other_choices
  bool components = true;       // whether the session has any
  bool as_root = false;         // otherwise as an ordinary user, if need be
  std::string tmpdir = "/tmp";  // below the test's own directory
};

// What came of it.
struct Outcome {
  std::string log;
  std::string end;  // what check_host returned and what it left behind; "" where it did not return
};

// Root may write and read everywhere, which two checks have to skip.
void become_ordinary_user() {
  constexpr gid_t nobody = 65534;
  if (geteuid() == 0 &&
      (setgroups(0, nullptr) != 0 || setgid(nobody) != 0 || setuid(nobody) != 0)) {
    std::perror("cannot become an ordinary user");
    _exit(1);
  }
}

std::map<std::string, std::string> set_variables(const GoodHost& host) {
  std::map<std::string, std::string> variables;
  for (const auto& [name, stored] : host.variables) {
    const std::string value = host.breaks("one-store") && host.variables.count("std " + name) > 0
                                  ? host.variables.at("std " + name)
                                  : stored;
    if (!value.empty() && name.rfind("std ", 0) != 0) {
      variables[name] = value;
    }
  }
  return variables;
}

std::string kept(const std::string& what, bool yes) {
  return what + (yes ? ": as before\n" : ": CHANGED\n");
}

// The child's whole life: it ends here, without running what the test program has for its own end.
[[noreturn]] void run_in_child(const World& world, const std::string& directory, CheckHost check) {
  setpgid(0, 0);
  const int log = open("log", O_WRONLY | O_CREAT | O_TRUNC, 0666);
  std::ofstream end("end");
  const std::string tmpdir = directory + world.tmpdir;
  setenv("TMPDIR", tmpdir.c_str(), 1);
  setenv("HOST_CHECK_LOG", (directory + "/log").c_str(), 1);
  if (!world.as_root) {
    become_ordinary_user();
  }

  GoodHost host(world.broken, log);
  host.other_choices = world.other_choices;
  if (!world.components) {
    host.components.clear();
  }
  const auto variables = set_variables(host);
  const int violations = check(&host.session);

  end << "returned " << violations << "\n"
      << kept("variables", set_variables(host) == variables)
      << kept("working directory", fs::current_path() == directory)
      << kept("TMPDIR", !fs::exists(tmpdir) || fs::is_empty(tmpdir)) << std::flush;
  _exit(0);
}

// In a child process, because a broken host may crash.
Outcome run(const World& world) {
  static const CheckHost check = check_host_of_library();
  const WorkingDirectoryKept working_directory_kept;
  const TemporaryDirectory directory;
  fs::create_directory(directory.path() + "/tmp");
  chmod(directory.path().c_str(), 0755);
  chmod((directory.path() + "/tmp").c_str(), 0777);
  fs::current_path(directory.path());

  const pid_t child = fork();
  if (child == 0) {
    run_in_child(world, directory.path(), check);
  }
  // Before the child's process group goes, what it left running goes.
  siginfo_t info{};
  waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT);
  kill(-child, SIGKILL);
  waitpid(child, nullptr, 0);

  const std::string log = directory.hidden_in(directory.read("/log"));
  return {std::regex_replace(log, std::regex("host_check\\.\\w{6}"), "host_check.XXXXXX"),
          directory.read("/end")};
}

const std::string kNothingLeft =
    "variables: as before\nworking directory: as before\nTMPDIR: as before\n";

// What the checks of the log and of error() write themselves.
const std::map<std::string, std::string> kTestLines{
    {"log-without-arguments", "host check, a test line: without arguments\n"},
    {"log-percent-in-argument", "host check, a test line: '100% %s %d %n %%' and '%'\n"},
    {"log-long-argument",
     "host check, a test line: '10,000 bytes, " + std::string(9982, '.') + " end'\n"},
    {"log-lines", "host check, a test line: looked for in the log\n"},
    {"error-returns", "ERROR: host check, a test of error(), nothing is wrong: 100% %s\n"},
};

// The whole log of a run in which these checks end otherwise than ok or for want of another.
std::string log_with(const std::map<std::string, std::string>& verdicts) {
  std::string log;
  std::set<std::string> ok;
  for (const host_check::Check& check : host_check::checks()) {
    const std::string name = check.name;
    std::string verdict = "ok";
    if (verdicts.count(name) > 0) {
      verdict = verdicts.at(name);
    }
    const auto missing = std::find_if(check.needs.begin(), check.needs.end(),
                                      [&ok](const char* need) { return ok.count(need) == 0; });
    if (missing != check.needs.end()) {
      verdict = std::string("skipped: it builds on ") + *missing + ", which is not ok";
    }
    if (verdict == "ok") {
      ok.insert(name);
    }
    log += "HOST_CHECK: " + name + ": checking\n";
    if (verdict == "ok" && kTestLines.count(name) > 0) {
      log += kTestLines.at(name);
    }
    log += "HOST_CHECK: " + name + ": " + verdict + "\n";
  }
  return log;
}

// A host that breaks one point, and what the check of that point says.
struct Specimen {
  std::string point;      // the check's name; ": " and how it is broken where there are several
  std::string violation;  // or "note: " and what is noted

  bool is_note() const { return violation.rfind("note: ", 0) == 0; }
  std::string verdict() const { return is_note() ? violation : "violated: " + violation; }
  std::string check() const { return point.substr(0, point.find(": ")); }
  std::string test_name() const { return std::regex_replace(point, std::regex("\\W+"), "_"); }
};

void PrintTo(const Specimen& specimen, std::ostream* out) { *out << specimen.point; }

const std::vector<Specimen> kSpecimens{
    {"log-without-arguments",
     R"(a normal return was expected, an exception came: "cannot write to the log")"},
    {"log-percent-in-argument",
     R"(a normal return was expected, an exception came: "cannot write to the log")"},
    {"log-long-argument",
     R"(a normal return was expected, an exception came: "cannot write to the log")"},
    {"error-returns: throws",
     R"(a normal return was expected, an exception came that is no std::exception)"},
    {"log-lines",
     R"(note: the line "host check, a test line: looked for in the log" is not in "DIR/log" when print_log has returned: a log that is not flushed loses what led to a crash)"},
    {"variables-readable",
     R"(a normal return was expected, an exception came: "no such variable")"},
    {"variables-never-set",
     R"(note: env_get_string("NDK_HOST_CHECK_NEVER_SET") gave "none", where the plug-in takes "" for a variable that was never set)"},
    {"set-c-strings", R"(env_get_string("NDK_PATH_STATUS") should give "nok", it gave "ok")"},
    {"set-std-strings",
     R"(env_get_string("NDK_COMPILER_VERSION") should give "4.1.7", it gave "5.0.3")"},
    {"one-store", R"(env_get_string("NDK_PATH") should give "/none", it gave "/opt/ndk-a")"},
    {"empty-value", R"(env_get_string("NDK_PATH") should give "", it gave "/opt/ndk")"},
    {"value-characters: a list ends the value",
     R"(env_get_string("NDK_COMPILER_SUBDIR") should give "/a;/b;;/c", it gave "/a")"},
    {"value-characters: the value is a format",
     R"(env_get_string("NDK_COMPILER_SUBDIR") should give "/100%/%s/%n", it gave "/100/s/n")"},
    {"value-characters: trims",
     R"(env_get_string("NDK_COMPILER_SUBDIR") should give " /blanks at both ends ", it gave "/blanks at both ends")"},
    {"value-length",
     R"(env_get_string("NDK_PATH") should give "/directory0/directory11/directory23/directory35/directory47/"... (100000 bytes), it gave "/directory0/directory11/directory23/directory35/directory47/"... (65535 bytes))"},
    {"variables-apart",
     R"(env_get_string("NDK_PATH") should give "the value of NDK_PATH", it gave "the value of NDK_PATH_STATUS")"},
    {"components-walk", R"(components() should give components only, element 1 of 3 is null)"},
    {"components-stable",
     R"(components(), asked a second time, should give ["compiler-ndk", "documentation"], it gave ["documentation", "compiler-ndk"])"},
    {"components-members",
     R"(a normal return was expected, an exception came: "no directory for documentation")"},
    {"component-subdir",
     R"(note: subdir() of the component "documentation" gave "compiler", which does not begin with "/")"},
    {"component-version",
     R"(note: the version of the component "compiler-ndk" is "5.0", not three numbers such as 5.0.3)"},
    {"split-order: gives equal pieces once",
     R"(splitString("r21e;r10e;r11c;r10e", ";", false) should give ["r21e", "r10e", "r11c", "r10e"], it gave ["r21e", "r10e", "r11c"])"},
    {"split-order: sorts",
     R"(splitString("r21e;r10e;r11c;r10e", ";", false) should give ["r21e", "r10e", "r11c", "r10e"], it gave ["r21e", "r11c", "r10e", "r10e"])"},
    {"split-version",
     R"(splitString("5.0.3", ".", false) should give ["5", "0", "3"], it gave ["", "", "", "", "", ""])"},
    {"split-inner-blanks",
     R"(splitString("/opt/my ndk;/home/a  b/ndk", ";", false) should give ["/opt/my ndk", "/home/a  b/ndk"], it gave ["/opt/my", "ndk", "/home/a", "", "b/ndk"])"},
    {"split-without-separator",
     R"(splitString("/opt/ndk", ";", false) should give ["/opt/ndk"], it gave [])"},
    {"split-empty-text", R"(a normal return was expected, an exception came: "nothing to split")"},
    {"replace-every-occurrence",
     R"(replaceAllSubstrings("<NDK_DIR>:<NDK_DIR><NDK_DIR>/bin", "<NDK_DIR>", "/opt/ndk") should give "/opt/ndk:/opt/ndk/opt/ndk/bin", it gave "/opt/ndk:<NDK_DIR><NDK_DIR>/bin")"},
    {"replace-with-nothing",
     R"(replaceAllSubstrings("NDK=<NDK_DIR>;", "<NDK_DIR>", "") should give "NDK=;", it gave "NDK=<NDK_DIR>;")"},
    {"replace-literally",
     R"(replaceAllSubstrings("DIR={INSTALL_NOX_INSTALLDIR}", "{INSTALL_NOX_INSTALLDIR}", "/opt/$&/\\1/&/%s") should give "DIR=/opt/$&/\\1/&/%s", it gave "DIR=/opt/{INSTALL_NOX_INSTALLDIR}/\\1/&/%s")"},
    {"replace-own-pattern",
     R"(replaceAllSubstrings("<NDK_DIR>;<NDK_DIR>", "<NDK_DIR>", "/opt/<NDK_DIR>/ndk") should return, it did not within a second's work)"},
    {"replace-other-bytes: drops carriage returns",
     R"(replaceAllSubstrings("\x09 nothing to replace \x0d", "<NDK_DIR>", "/opt/ndk") should give "\x09 nothing to replace \x0d", it gave "\x09 nothing to replace ")"},
    {"replace-other-bytes: ends at a NUL",
     R"(replaceAllSubstrings("\x00\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0b\x0c\x0d\x0e\x0f\x10\x11\x12\x13\x14\x15\x16\x17\x18\x19\x1a\x1b\x1c\x1d\x1e\x1f !\"#$%&'()*+,-./0123456789:;<"... (519 bytes), "<NDK_DIR>", "/opt/ndk") should give "\x00\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0b\x0c\x0d\x0e\x0f\x10\x11\x12\x13\x14\x15\x16\x17\x18\x19\x1a\x1b\x1c\x1d\x1e\x1f !\"#$%&'()*+,-./0123456789:;<"... (518 bytes), it gave "")"},
    {"strtoint-decimals", R"(strtoint("2725575") should give 2725575, it gave -26937)"},
    {"strtoint-leading-zeros", R"(strtoint("010") should give 10, it gave 8)"},
    {"strtoint-negative", R"(strtoint("-1") should give -1, it gave 0)"},
    {"strtoint-no-number", R"(strtoint("") should return, an exception came: "stoi")"},
    {"inttostr-decimals", R"(inttostr(2005) should give "2005", it gave "2,005")"},
    {"inttostr-negative", R"(inttostr(-1) should give "-1", it gave "1")"},
    {"path-of-file",
     R"(path("DIR/tmp/host_check.XXXXXX/source.properties") should lead to the file of that name, it gave "DIR/tmp/host_check.XXXXXX", which does not)"},
    {"path-of-directory",
     R"(path("DIR/tmp/host_check.XXXXXX/android") should lead to the directory of that name, it gave "DIR/tmp/host_check.XXXXXX", which does not)"},
    {"path-with-blanks",
     R"(path("DIR/tmp/host_check.XXXXXX/my ndk/a file") should lead to the file of that name, it gave "DIR/tmp/host_check.XXXXXX/my\\ ndk/a\\ file", which does not)"},
    {"path-of-path",
     R"(a normal return was expected, an exception came: "this path was converted before")"},
    {"path-of-missing-file", R"(a normal return was expected, an exception came: "no such file")"},
    {"path-of-unreadable",
     R"(path("DIR/tmp/host_check.XXXXXX/loop") should return, an exception came: "cannot be looked at")"},
    {"path-of-empty-text", R"(a normal return was expected, an exception came: "no path")"},
    {"file-exists",
     R"(file_exists("DIR/tmp/host_check.XXXXXX/ndk-build", false) should give a value other than 0, it gave 0)"},
    {"file-exists-missing",
     R"(file_exists("DIR/tmp/host_check.XXXXXX/ndk-build", false) should give 0, it gave 256)"},
    {"file-exists-missing-directory",
     R"(a normal return was expected, an exception came: "no such directory")"},
    {"file-exists-unreadable",
     R"(file_exists("DIR/tmp/host_check.XXXXXX/loop/ndk-build", false) should return, an exception came: "cannot be looked at")"},
    {"is-writable",
     R"(is_writable("DIR/tmp/host_check.XXXXXX/ndk") should give a value other than 0, it gave 0)"},
    {"is-writable-read-only",
     R"(is_writable("DIR/tmp/host_check.XXXXXX/ndk") should give 0, it gave 256)"},
    {"is-writable-unreadable",
     R"(is_writable("DIR/tmp/host_check.XXXXXX/loop") should return, an exception came: "cannot be looked at")"},
    {"file-move-replaces",
     R"(after file_move("DIR/tmp/host_check.XXXXXX/setup.mk.tmp", "DIR/tmp/host_check.XXXXXX/setup.mk") the second file should hold "new", it holds "old")"},
    {"file-move-takes-source",
     R"(after file_move("DIR/tmp/host_check.XXXXXX/setup.mk.tmp", "DIR/tmp/host_check.XXXXXX/setup.mk") the first file should be gone, it is still there)"},
    {"file-move-blanks", R"(after file_move("DIR/tmp/host_check.XXXXXX/my compiler/a file.tmp", "DIR/tmp/host_check.XXXXXX/my compiler/a file") the second file should hold "new", it holds "old")"},
    {"property-value",
     R"(value("Pkg.Revision ") of "DIR/tmp/host_check.XXXXXX/source.properties", blanks around it aside, should give "11.2.2725575", it gave "")"},
    {"property-missing-key", R"(a normal return was expected, an exception came: "no such key")"},
    {"property-unreadable-file",
     R"(a normal return was expected, an exception came: "cannot open a property file")"},
    {"property-unreadable-directory",
     R"(value("Pkg.Revision ") of "DIR/tmp/host_check.XXXXXX/source.properties" should return, an exception came: "is a directory")"},
    {"property-each-file",
     R"(value("Pkg.Revision ") of "DIR/tmp/host_check.XXXXXX/newer/source.properties", blanks around it aside, should give "29.0.14033849-beta4", it gave "11.2.2725575")"},
    {"release-numbers",
     R"(strtoint(" 11"), as value() and splitString leave the text, should give 11, it gave 0)"},
    {"command-null-status: throws",
     R"(a normal return was expected, an exception came: "no exit status")"},
    {"command-output",
     R"(get_command_output("printf one", null, true, "") should give "one", it gave "")"},
    {"command-shell",
     R"(get_command_output("printf \"[%s]\" \"/opt/my ndk\" --force", null, true, "") should give "[/opt/my ndk][--force]", it gave "\"[\"/opt/my]\"\"[ndk\"]\"\"[--force]\"")"},
    {"command-working-directory",
     R"(get_command_output("sh ./script 2>/dev/null", null, true, "") should give "found the script", it gave "")"},
    {"command-complete-output",
     R"(get_command_output("cat ./text 2>/dev/null", null, true, "") should give "line at 0\x0aline at 10\x0aline at 21\x0aline at 32\x0aline at 43\x0aline a"... (1048600 bytes), it gave "line at 0\x0aline at 10\x0aline at 21\x0aline at 32\x0aline at 43\x0aline a"... (65536 bytes))"},
    {"command-failing",
     R"(get_command_output("sh ./script 2>/dev/null", null, true, "") should give "a failure", it gave "")"},
    {"command-not-there", R"(a normal return was expected, an exception came: "no such command")"},
    {"command-waits",
     R"(get_command_output("exec >/dev/null 2>&1; sleep 0.1; : >finished", null, true, "") should return when the command has ended, it returned earlier)"},
    {"command-standard-input",
     R"(get_command_output should give the command an empty standard input, the command gave "read: the host's own input")"},
};

}  // namespace

TEST(HostCheck, GoodHost) {
  const Outcome outcome = run({});

  EXPECT_EQ(outcome.log, log_with({}));
  EXPECT_EQ(outcome.end, "returned 0\n" + kNothingLeft);
}

// Where the contract leaves a choice, the other choice is as good.
TEST(HostCheck, GoodHostWithOtherChoices) {
  World world;
  world.other_choices = true;

  const Outcome outcome = run(world);

  EXPECT_EQ(outcome.log, log_with({}));
  EXPECT_EQ(outcome.end, "returned 0\n" + kNothingLeft);
}

class BrokenHost : public testing::TestWithParam<Specimen> {};

TEST_P(BrokenHost, NamesThatPointAndNoOther) {
  const Outcome outcome = run({GetParam().point});

  EXPECT_EQ(outcome.log, log_with({{GetParam().check(), GetParam().verdict()}}));
  EXPECT_EQ(outcome.end, (GetParam().is_note() ? "returned 0\n" : "returned 1\n") + kNothingLeft);
}

INSTANTIATE_TEST_SUITE_P(HostCheck, BrokenHost, testing::ValuesIn(kSpecimens),
                         [](const auto& test) { return test.param.test_name(); });

TEST(HostCheck, BrokenHostForEachCheck) {
  std::vector<std::string> names;
  for (const host_check::Check& check : host_check::checks()) {
    names.emplace_back(check.name);
  }
  std::vector<std::string> broken;
  for (const Specimen& specimen : kSpecimens) {
    if (broken.empty() || broken.back() != specimen.check()) {
      broken.push_back(specimen.check());
    }
  }

  EXPECT_EQ(broken, names);
}

// The log stops after the line that tells what was checked.
TEST(HostCheck, CrashNamesItsCause) {
  const Outcome outcome = run({"command-null-status: crashes"});

  const std::string log = log_with({});
  const std::string last_line = "HOST_CHECK: command-null-status: checking\n";
  EXPECT_EQ(outcome.log, log.substr(0, log.find(last_line)) + last_line);
  EXPECT_EQ(outcome.end, "");
}

TEST(HostCheck, ErrorThatEndsTheProcess) {
  const Outcome outcome = run({"error-returns: ends the process"});

  const std::string log = log_with({});
  const std::string last_line = "HOST_CHECK: error-returns: checking\n";
  EXPECT_EQ(outcome.log, log.substr(0, log.find(last_line)) + last_line);
  EXPECT_EQ(outcome.end, "");
}

// Nothing can be told then but the number: the three ways in which the log is tried out.
TEST(HostCheck, LogThatThrows) {
  const Outcome outcome = run({"log: always throws"});

  EXPECT_EQ(outcome.log, "ERROR: host check, a test of error(), nothing is wrong: 100% %s\n");
  EXPECT_EQ(outcome.end, "returned 3\n" + kNothingLeft);
}

TEST(HostCheck, NoComponents) {
  World world;
  world.components = false;

  const Outcome outcome = run(world);

  const std::string skipped = "skipped: the session has no components";
  EXPECT_EQ(outcome.log,
            log_with({{"components-stable", skipped}, {"components-members", skipped}}));
  EXPECT_EQ(outcome.end, "returned 0\n" + kNothingLeft);
}

TEST(HostCheck, RootMayWriteAndReadEverywhere) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can see this";
  }
  World world;
  world.as_root = true;

  const Outcome outcome = run(world);

  EXPECT_EQ(outcome.log,
            log_with({{"is-writable-read-only",
                       "skipped: this user may write to read-only directories, as root may"},
                      {"property-unreadable-file",
                       "skipped: this user may read every file, as root may"}}));
  EXPECT_EQ(outcome.end, "returned 0\n" + kNothingLeft);
}

TEST(HostCheck, NoTemporaryDirectory) {
  World world;
  world.tmpdir = "/none";

  const Outcome outcome = run(world);

  std::map<std::string, std::string> verdicts;
  for (const char* name : {"path-of-file", "path-of-directory", "path-of-missing-file",
                           "command-working-directory", "command-not-there"}) {
    verdicts[name] =
        "skipped: cannot make a temporary directory in DIR/none: No such file or directory";
  }
  EXPECT_EQ(outcome.log, log_with(verdicts));
  EXPECT_EQ(outcome.end, "returned 0\n" + kNothingLeft);
}

TEST(HostCheck, Exports) {
  FILE* pipe = popen("nm -D --defined-only --format=posix '" HOST_CHECK_LIBRARY "'", "r");
  ASSERT_NE(pipe, nullptr);
  std::string names;
  std::array<char, 4096> line{};
  while (std::fgets(line.data(), line.size(), pipe) != nullptr) {
    const std::string text = line.data();
    names += text.substr(0, text.find(' ', text.find(' ') + 1)) + "\n";
  }

  EXPECT_EQ(pclose(pipe), 0) << "nm is part of binutils";
  EXPECT_EQ(names, "check_host T\n");
}
