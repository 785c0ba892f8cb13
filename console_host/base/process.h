// Runs other programs.
#ifndef CONSOLE_HOST_BASE_PROCESS_H
#define CONSOLE_HOST_BASE_PROCESS_H

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace ndk_integrate {

struct ProcessResult {
  int exit_status = 0;  // as the shell counts: 128 + N for a process ended by signal N
  std::string output;   // both output streams, as they came
};

// Runs the program arguments[0], looked for in PATH, with nothing to read, and waits for its end.
// `started` is told its process number. Throws std::system_error when it cannot be started.
ProcessResult run_process(
    std::vector<std::string> arguments, const std::function<void(pid_t)>& started = [](pid_t) {});

}  // namespace ndk_integrate

#endif
