// The command `ndk-integrate install`.
#ifndef CONSOLE_HOST_COMMANDS_INSTALL_H
#define CONSOLE_HOST_COMMANDS_INSTALL_H

#include "console_host/commands/exit_code.h"
#include "console_host/ndk/plugin.h"
#include "console_host/services/session.h"

namespace ndk_integrate {

struct InstallOptions {
  bool dry_run = false;   // change nothing outside TMPDIR, run no script, tell what would change
  bool optional = false;  // nothing to do is well
  bool keep_ndk = false;  // leave the NDK alone that it was installed for before
  bool verify = false;    // afterwards prove that the NDK builds with the compiler
  bool json = false;
};

// Runs the installation as an installer would: finds the NDK, asks whether integration is wanted,
// integrates. What it was integrated into before is put right first. Tells each step in a line on
// standard output, or all in one JSON object at the end, and on standard error why it stopped.
// Throws UsageError when the compiler's component is not to be used. Changes the working directory.
ExitCode install(const Plugin& plugin, const Installation& installation,
                 const InstallOptions& options);

}  // namespace ndk_integrate

#endif
