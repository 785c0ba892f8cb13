// The run of one of a compiler package's scripts.
#ifndef CONSOLE_HOST_PACKAGE_SCRIPT_RUN_H
#define CONSOLE_HOST_PACKAGE_SCRIPT_RUN_H

#include <string>

#include "console_host/base/process.h"

namespace ndk_integrate {

struct ScriptRun {
  std::string command;
  int exit_status = 0;
  std::string output;  // its beginning and its end, as run_process() keeps them
};

// Why the script `script`, "the integration script" or the like in `what`, cannot be run; "" when
// it can.
std::string why_not_runnable(const std::string& what, const std::string& script);

// Follows a script while it runs.
class ScriptWatcher : public ProcessWatcher {
 public:
  virtual void begins(const std::string& command) = 0;
  virtual void ended() = 0;
};

}  // namespace ndk_integrate

#endif
