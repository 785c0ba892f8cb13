// The command `ndk-integrate check-host --program FILE`: will the plug-in load in that host?
#ifndef CONSOLE_HOST_COMMANDS_CHECK_HOST_PROGRAM_H
#define CONSOLE_HOST_COMMANDS_CHECK_HOST_PROGRAM_H

#include <optional>
#include <string>

#include "console_host/commands/exit_code.h"

namespace ndk_integrate {

struct HostProgramOptions {
  std::optional<std::string> program;  // the host's file
  bool json = false;
};

// Tells of each function that the plug-in `plugin` (with "" it is looked for as usual) needs
// whether the program exports it, and why not. Returns kDone when the plug-in will load, else
// kNotDone. Throws UsageError when the file is not an ELF program, PluginError when the plug-in
// cannot be read.
ExitCode check_host_program(const HostProgramOptions& options, const std::string& plugin);

}  // namespace ndk_integrate

#endif
