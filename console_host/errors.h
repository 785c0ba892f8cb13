// What ends a command early, and the exit code that goes with it.
#ifndef CONSOLE_HOST_ERRORS_H
#define CONSOLE_HOST_ERRORS_H

#include <stdexcept>

enum ExitCode : int { kDone = 0, kNotDone = 1, kWrongUsage = 2, kNoPlugin = 3 };

// The command line or an installation.toml is wrong; nothing was touched.
class UsageError : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// The plug-in cannot be loaded, or is none; nothing was touched.
class PluginError : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// What is said of an exception that is no std::exception.
constexpr const char* kUnknownException = "the plug-in threw an exception of an unknown type";

#endif
