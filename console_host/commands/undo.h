// The command `ndk-integrate undo`.
#ifndef CONSOLE_HOST_COMMANDS_UNDO_H
#define CONSOLE_HOST_COMMANDS_UNDO_H

#include "console_host/commands/exit_code.h"
#include "console_host/ndk/plugin.h"
#include "console_host/package/installation_file.h"

namespace ndk_integrate {

// Puts back the originals of all files that installations changed in the compiler. Tells what it
// did on standard output, in lines or as one JSON object. Returns kDone, also when there is nothing to undo, or kNotDone.
ExitCode undo(const Plugin& plugin, const Installation& installation, bool json);

}  // namespace ndk_integrate

#endif
