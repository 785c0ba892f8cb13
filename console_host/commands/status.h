// The command `ndk-integrate status`.
#ifndef CONSOLE_HOST_COMMANDS_STATUS_H
#define CONSOLE_HOST_COMMANDS_STATUS_H

#include "console_host/commands/exit_code.h"
#include "console_host/ndk/plugin.h"
#include "console_host/services/session.h"

namespace ndk_integrate {

// Tells what is installed of the compiler: for which NDK and since when, and what became of each of
// its files. Changes nothing. Returns kDone, also where nothing is installed, kNotDone when that
// cannot be told. Throws UsageError when the compiler's component is not to be used.
ExitCode status(const Plugin& plugin, const Installation& installation, bool json);

}  // namespace ndk_integrate

#endif
