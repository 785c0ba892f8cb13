// The command `ndk-integrate undo`.
#ifndef CONSOLE_HOST_COMMANDS_UNDO_H
#define CONSOLE_HOST_COMMANDS_UNDO_H

#include <string>
#include <vector>

#include "console_host/commands/exit_code.h"
#include "console_host/ndk/plugin.h"
#include "console_host/services/session.h"

namespace ndk_integrate {

struct UndoOptions {
  bool dry_run = false;   // change nothing, tell what would be put back
  bool keep_ndk = false;  // leave the NDK alone
  bool json = false;
  std::vector<std::string> force;  // files whose changes by others give way, and are kept beside
};

// Has the compiler package's removal script take its definitions out of the NDK, puts back the
// originals of the compiler's files that an installation changed, and tells of each. Throws
// UsageError when the compiler's component is not to be used, or a file to force is not one that an
// installation changed.
ExitCode undo(const Plugin& plugin, const Installation& installation, const UndoOptions& options);

}  // namespace ndk_integrate

#endif
