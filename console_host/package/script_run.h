// The run of one of a compiler package's scripts.
#ifndef CONSOLE_HOST_PACKAGE_SCRIPT_RUN_H
#define CONSOLE_HOST_PACKAGE_SCRIPT_RUN_H

#include <string>

namespace ndk_integrate {

struct ScriptRun {
  std::string command;
  int exit_status = 0;
  std::string output;
};

}  // namespace ndk_integrate

#endif
