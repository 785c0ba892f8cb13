// Runs other programs.
#ifndef CONSOLE_HOST_BASE_PROCESS_H
#define CONSOLE_HOST_BASE_PROCESS_H

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace ndk_integrate {

struct ProcessOptions {
  std::string working_directory;  // "" for this program's
  std::optional<std::vector<std::string>>
      environment;  // each "NAME=VALUE"; without it this program's
  // When it is over, the process and what it started is killed; it gets a process group for that.
  std::optional<std::chrono::milliseconds> time_limit;
};

struct ProcessResult {
  int exit_status = 0;  // as the shell counts: 128 + N for a process ended by signal N
  std::string output;   // both output streams, as they came
  bool is_timed_out = false;
};

// Runs the program arguments[0], looked for in PATH, with nothing to read, and waits for its end, but
// not for that of a process it leaves behind.
// Throws std::system_error when it cannot be started.
ProcessResult run_process(std::vector<std::string> arguments, const ProcessOptions& options = {});

// This program's environment, each "NAME=VALUE".
std::vector<std::string> environment();

}  // namespace ndk_integrate

#endif
