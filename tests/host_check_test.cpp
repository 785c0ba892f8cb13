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
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "host_check/checks.h"
#include "host_check/scratch.h"
#include "host_check/verdict.h"
#include "tests/broken_hosts/good_host.h"
#include "tests/temporary_directory.h"
#include "tests/texts.h"

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
  bool log_is_named = true;     // to the host check
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

std::ptrdiff_t open_descriptors() {
  return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
}

// The child's whole life: it ends here, without running what the test program has for its own end.
[[noreturn]] void run_in_child(const World& world, const std::string& directory, CheckHost check) {
  setpgid(0, 0);
  const int log = open("log", O_WRONLY | O_CREAT | O_TRUNC, 0666);
  std::ofstream end("end");
  const std::string tmpdir = directory + world.tmpdir;
  setenv("TMPDIR", tmpdir.c_str(), 1);
  if (world.log_is_named) {
    setenv("HOST_CHECK_LOG", (directory + "/log").c_str(), 1);
  }
  if (!world.as_root) {
    become_ordinary_user();
  }

  GoodHost host(world.broken, log);
  host.other_choices = world.other_choices;
  if (!world.components) {
    host.components.clear();
  }
  const auto variables = set_variables(host);
  const auto descriptors = open_descriptors();
  const int violations = check(&host.session);

  end << "returned " << violations << "\n"
      << kept("variables", set_variables(host) == variables)
      << kept("descriptors", open_descriptors() == descriptors)
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
  return {std::regex_replace(log, std::regex("DIR/tmp/host_check\\.\\w{6}"), "SCRATCH"),
          directory.read("/end")};
}

const std::string kNothingLeft =
    "variables: as before\ndescriptors: as before\nworking directory: as before\nTMPDIR: as before\n";

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
};

std::string test_name(const std::string& point, std::size_t index) {
  return std::regex_replace(point, std::regex("\\W+"), "_") + "_" + std::to_string(index);
}

void PrintTo(const Specimen& specimen, std::ostream* out) { *out << specimen.point; }

// One a line, the point and the violation parted by " | ".
std::vector<Specimen> specimens() {
  std::vector<Specimen> all;
  for (const std::string& line :
       lines_of(content_of(SOURCE_DIR "/tests/broken_hosts/violations.txt"))) {
    const std::size_t bar = line.find(" | ");
    all.push_back({line.substr(0, bar), line.substr(bar + 3)});
  }
  return all;
}

// What must come of a host check in which these checks end otherwise than ok.
void expect_verdicts(const World& world, const std::map<std::string, std::string>& verdicts,
                     int violations = 0) {
  const Outcome outcome = run(world);

  EXPECT_EQ(outcome.log, log_with(verdicts));
  EXPECT_EQ(outcome.end, "returned " + std::to_string(violations) + "\n" + kNothingLeft);
}

TEST(HostCheck, GoodHost) { expect_verdicts({}, {}); }

// Where the contract leaves a choice, any other is as good.
class HostWithAnotherChoice : public testing::TestWithParam<std::string> {};

TEST_P(HostWithAnotherChoice, IsGood) { expect_verdicts({GetParam()}, {}); }

INSTANTIATE_TEST_SUITE_P(HostCheck, HostWithAnotherChoice,
                         testing::ValuesIn(lines_of(content_of(SOURCE_DIR
                                                               "/tests/broken_hosts/choices.txt"))),
                         [](const auto& test) { return test_name(test.param, test.index); });

TEST(HostCheck, GoodHostWithOtherChoices) {
  World world;
  world.other_choices = true;
  expect_verdicts(world, {});
}

class BrokenHost : public testing::TestWithParam<Specimen> {};

TEST_P(BrokenHost, NamesThatPointAndNoOther) {
  const Specimen& specimen = GetParam();
  expect_verdicts({specimen.point}, {{specimen.check(), specimen.verdict()}},
                  specimen.is_note() ? 0 : 1);
}

INSTANTIATE_TEST_SUITE_P(HostCheck, BrokenHost, testing::ValuesIn(specimens()),
                         [](const auto& test) { return test_name(test.param.point, test.index); });

TEST(HostCheck, BrokenHostForEachCheck) {
  Lines names;
  for (const host_check::Check& check : host_check::checks()) {
    names.emplace_back(check.name);
  }
  Lines broken;
  for (const Specimen& specimen : specimens()) {
    if (broken.empty() || broken.back() != specimen.check()) {
      broken.push_back(specimen.check());
    }
  }

  EXPECT_EQ(broken, names);
}

// The log stops after the line that tells what was checked.
TEST(HostCheck, CrashNamesItsCause) {
  for (const auto& [point, check] :
       {std::pair("command-null-status: crashes", "command-null-status"),
        std::pair("error-returns: ends the process", "error-returns")}) {
    const Outcome outcome = run({point});

    const std::string log = log_with({});
    const std::string last_line = "HOST_CHECK: " + std::string(check) + ": checking\n";
    EXPECT_EQ(outcome.log, log.substr(0, log.find(last_line)) + last_line);
    EXPECT_EQ(outcome.end, "");
  }
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
  const std::string skipped = "skipped: the session has no components";
  expect_verdicts(world, {{"components-stable", skipped}, {"components-members", skipped}});
}

TEST(HostCheck, LogWithoutName) {
  World world;
  world.log_is_named = false;
  expect_verdicts(world, {{"log-lines", "skipped: HOST_CHECK_LOG does not name the log's file"}});
}

// What the checks cannot write is not the host's fault.
TEST(HostCheck, FullDisk) {
  EXPECT_THROW(host_check::write_file("/dev/full", "text"), host_check::Skipped);
}

TEST(HostCheck, RootMayWriteAndReadEverywhere) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can see this";
  }
  World world;
  world.as_root = true;
  expect_verdicts(
      world, {{"is-writable-read-only",
               "skipped: this user may write to read-only directories, as root may"},
              {"property-unreadable-file", "skipped: this user may read every file, as root may"}});
}

TEST(HostCheck, NoTemporaryDirectory) {
  World world;
  world.tmpdir = "/none";
  const std::string skipped =
      "skipped: cannot make a temporary directory in DIR/none: No such file or directory";
  expect_verdicts(world, {{"path-of-file", skipped},
                          {"path-of-directory", skipped},
                          {"path-of-missing-file", skipped},
                          {"command-working-directory", skipped},
                          {"command-not-there", skipped}});
}

TEST(HostCheck, Exports) {
  const ShellResult nm =
      shell("nm -D --defined-only -P '" HOST_CHECK_LIBRARY "' | cut -d ' ' -f 1,2");

  EXPECT_EQ(nm.exit_status, 0) << "nm is part of binutils";
  EXPECT_EQ(nm.output, "check_host T\n");
}

}  // namespace
