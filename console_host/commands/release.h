// The command `ndk-integrate release`: a release in the other way of counting.
#ifndef CONSOLE_HOST_COMMANDS_RELEASE_H
#define CONSOLE_HOST_COMMANDS_RELEASE_H

#include <string>

#include "console_host/commands/exit_code.h"

namespace ndk_integrate {

// Tells the numbers of the release `text`, "r21e", or the release of the numbers `text`,
// "21.4.7075529". Throws UsageError when it is neither.
ExitCode convert_release(const std::string& text, bool json);

}  // namespace ndk_integrate

#endif
