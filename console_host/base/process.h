// Runs other programs.
#ifndef CONSOLE_HOST_BASE_PROCESS_H
#define CONSOLE_HOST_BASE_PROCESS_H

#include <string>
#include <vector>

namespace ndk_integrate {

struct ProcessResult {
  int exit_status = 0;  // as the shell counts: 128 + N for a process ended by signal N
  std::string output;   // both output streams, as they came
};

// Runs the program arguments[0], looked for in PATH, with nothing to read, and waits for its end.
// Throws std::system_error when it cannot be started.
ProcessResult run_process(std::vector<std::string> arguments);

}  // namespace ndk_integrate

#endif
