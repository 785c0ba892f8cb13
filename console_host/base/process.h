// Runs other programs.
#ifndef CONSOLE_HOST_BASE_PROCESS_H
#define CONSOLE_HOST_BASE_PROCESS_H

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ndk_integrate {

// Follows a process while it runs.
class ProcessWatcher {
 public:
  ProcessWatcher() = default;
  virtual ~ProcessWatcher() = default;
  ProcessWatcher(const ProcessWatcher&) = delete;
  ProcessWatcher& operator=(const ProcessWatcher&) = delete;

  // The process printed `text`, on either output stream. A line may come in pieces.
  virtual void printed(std::string_view text) = 0;

  // The process has not printed anything for a while. It has been running for `time`.
  virtual void is_silent(std::chrono::milliseconds time) = 0;
};

struct ProcessOptions {
  std::string working_directory;  // "" for this program's
  std::optional<std::vector<std::string>>
      environment;  // each "NAME=VALUE"; without it this program's
  // When it is over, the process and what it started is killed.
  std::optional<std::chrono::milliseconds> time_limit;
  std::size_t most_of_each_end = 8 << 20;         // of the output, in bytes; the rest is left out
  ProcessWatcher* watcher = nullptr;              // the caller's; none where null
  std::chrono::milliseconds silence{5000};        // after which the watcher is told, each time
  std::chrono::milliseconds grace_period{10000};  // to end in when this program is interrupted
};

struct ProcessResult {
  int exit_status = 0;  // as the shell counts: 128 + N for a process ended by signal N
  std::string output;   // both output streams, as they came, see most_of_each_end
  bool is_timed_out = false;
};

// Runs the program arguments[0], looked for in PATH, with nothing to read, and waits for its end,
// but not for that of a process it leaves behind. It has a process group of its own, and signals
// act as usual in it.
// What asks this program to end is handed on to the group and noted, which the caller is to look at
// afterwards, see throw_if_interrupted(). What is left of the group after the grace period is
// killed. Throws std::system_error when it cannot be started, and Interrupted when this program is
// to end.
ProcessResult run_process(std::vector<std::string> arguments, const ProcessOptions& options = {});

// This program's environment, each "NAME=VALUE".
std::vector<std::string> environment();

}  // namespace ndk_integrate

#endif
