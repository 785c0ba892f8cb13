// The command `ndk-integrate check-host`: the host check, run on this host itself.
#ifndef CONSOLE_HOST_COMMANDS_CHECK_HOST_H
#define CONSOLE_HOST_COMMANDS_CHECK_HOST_H

#include <string>

#include "console_host/commands/exit_code.h"

namespace ndk_integrate {

// Loads the host check `file` (with "" it is looked for as the plug-in is), lets it check this host
// in a process of its own and shows its report, the lines of the log, on standard output. Returns
// kDone when there is no violation, else kNotDone, also where the process dies; the check at which
// it did is then told. The check looks for its lines in the file `log`, unless that is "". Throws
// PluginError when the host check cannot be loaded.
ExitCode run_host_check(const std::string& file, const std::string& log);

}  // namespace ndk_integrate

#endif
