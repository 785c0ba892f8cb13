// How the program ends.
#ifndef CONSOLE_HOST_COMMANDS_EXIT_CODE_H
#define CONSOLE_HOST_COMMANDS_EXIT_CODE_H

namespace ndk_integrate {

enum ExitCode : int {
  kDone = 0,
  kNotDone = 1,
  kWrongUsage = 2,
  kNoPlugin = 3,
  kNothingToDo = 4,  // there is nothing to do here, and nothing was changed
};

}  // namespace ndk_integrate

#endif
