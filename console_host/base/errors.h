// What ends a command early, and how it is told.
#ifndef CONSOLE_HOST_BASE_ERRORS_H
#define CONSOLE_HOST_BASE_ERRORS_H

#include <stdexcept>
#include <string>

namespace ndk_integrate {

// The command line or an installation.toml is wrong; nothing was touched.
class UsageError : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// The plug-in, or another library, cannot be loaded, or is not what it should be; nothing was
// touched.
class PluginError : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// What the system says of the error number `number`, as it stands in the middle of a sentence.
std::string system_error_text(int number);

// What the exception that is being handled says; call it in a handler only. Its type may be one of
// the plug-in's own, which must still be loaded then.
std::string describe_current_exception();

}  // namespace ndk_integrate

#endif
