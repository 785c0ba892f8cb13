#include "console_host/commands/check_host.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <system_error>

#include "console_host/base/file_descriptor.h"
#include "console_host/base/shared_library.h"
#include "console_host/base/text.h"
#include "console_host/commands/output.h"
#include "console_host/services/log.h"
#include "console_host/services/session.h"

namespace ndk_integrate {

namespace {

using CheckHost = int (*)(session_t*);

// Begins the line that tells the number of violations. No line of the log holds this character.
constexpr char kResult = '\x01';

[[noreturn]] void fail(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

// The whole life of the process that runs the check: its standard output is `report`.
[[noreturn]] void run_in_child(CheckHost check_host, int report) {
  if (dup2(report, STDOUT_FILENO) < 0) {
    _exit(kNotDone);
  }
  // Two components, for the checks that need some.
  const Installation installation{{},
                                  {{"first", "1.2.3", "4", "/first", true, true},
                                   {"second", "5.0.3", "42", "/second", true, false}}};
  Session session(installation);
  log_to_standard_output();
  const int violations = check_host(session.handle());
  if (!log_is_complete()) {
    complain("warning: the log file could not be written whole");
  }
  std::cout << kResult << violations << std::endl;
  _exit(kDone);
}

// What the process that runs the check told.
struct Report {
  std::string check;       // the one that ran last; "" before the first
  std::string violations;  // their number; "" where the process ended before it told it
};

void take_line(const std::string& line, Report& report) {
  if (!line.empty() && line[0] == kResult) {
    report.violations = line.substr(1);
    return;
  }
  const std::string begin = "HOST_CHECK: ";
  const std::string end = ": checking";
  if (begins_with(line, begin) && line.size() > begin.size() + end.size() && ends_with(line, end)) {
    report.check = line.substr(begin.size(), line.size() - begin.size() - end.size());
  }
  say(line);
}

Report take_report(int input) {
  Report report;
  FILE* lines = fdopen(input, "r");
  if (lines == nullptr) {
    fail("cannot read the host check's report");
  }
  char* line = nullptr;
  std::size_t capacity = 0;
  for (ssize_t size = 0; (size = getline(&line, &capacity, lines)) > 0;) {
    const bool is_whole = line[size - 1] == '\n';
    take_line({line, static_cast<std::size_t>(is_whole ? size - 1 : size)}, report);
  }
  std::free(line);
  std::fclose(lines);
  return report;
}

std::string how_it_ended(int status) {
  if (WIFSIGNALED(status)) {
    const int number = WTERMSIG(status);
    return "by signal " + std::to_string(number) + " (" + strsignal(number) + ")";
  }
  return "with exit status " + std::to_string(WEXITSTATUS(status)) + ", before the check was done";
}

}  // namespace

ExitCode run_host_check(const std::string& file, const std::string& log) {
  const Library library("the host check", "libhost_check.so", file);
  const auto check_host = reinterpret_cast<CheckHost>(library.function("check_host", "check_host"));
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    fail("cannot make a pipe");
  }
  FileDescriptor input(ends[0]);
  FileDescriptor output(ends[1]);
  if (!log.empty()) {
    setenv("HOST_CHECK_LOG", std::filesystem::absolute(log).c_str(), 1);
  }
  std::cout.flush();
  const pid_t child = fork();
  if (child < 0) {
    fail("cannot start a process for the host check");
  }
  if (child == 0) {
    run_in_child(check_host, output.number());
  }
  output.close();
  const Report report = take_report(input.release());
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) {
      fail("cannot wait for the host check");
    }
  }
  if (report.violations.empty() || WIFSIGNALED(status)) {
    complain("the host died " +
             (report.check.empty() ? "before the first check" : "at the check " + report.check) +
             ", " + how_it_ended(status));
    return kNotDone;
  }
  say_always("host check: " + report.violations +
             (report.violations == "1" ? " violation" : " violations"));
  return report.violations == "0" ? kDone : kNotDone;
}

}  // namespace ndk_integrate
