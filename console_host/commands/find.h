// The commands `ndk-integrate find` and `ndk-integrate check`: which NDK, and why not the others.
#ifndef CONSOLE_HOST_COMMANDS_FIND_H
#define CONSOLE_HOST_COMMANDS_FIND_H

#include <optional>
#include <string>
#include <vector>

#include "console_host/commands/exit_code.h"
#include "console_host/commands/output.h"
#include "console_host/ndk/judgement.h"
#include "console_host/ndk/plugin.h"

namespace ndk_integrate {

// The object for programs that `check` prints.
Json to_json(const Judgement& judgement);

// "PATH: reason", for people.
std::string line_of(const Judgement& judgement);

struct FindOptions {
  std::vector<std::string> search;       // lists of directories; with none the default search
  std::optional<std::string> supported;  // without it what the project pins, or any release
  std::optional<std::string> project;    // its directory; without it the working directory
  std::optional<std::string> lock;       // the file to write the facts of the NDK found to
  std::optional<std::string> locked;     // the file of such facts: exactly that NDK
  std::optional<std::string> format;     // of the line to print, for programs
  bool no_project = false;
  bool all = false;  // judge every candidate, not only up to the first good one
  bool newest = false;
  bool prerelease = false;
  bool read_only = false;
  bool json = false;
};

// Throws UsageError when an option says what cannot be understood.
void require_understood(const FindOptions& options);

// Tells the verdict on each candidate and the NDK found. Returns kDone when one was found, else
// kNotDone. Throws UsageError when the project or a lock cannot be read.
ExitCode find(const Plugin& plugin, const FindOptions& options);

struct CheckOptions {
  std::string dir;
  std::optional<std::string> supported;
  bool read_only = false;
  bool json = false;
};

// Throws UsageError when an option says what cannot be understood.
void require_understood(const CheckOptions& options);

// Tells the verdict on one directory. Returns kDone when it is a good NDK, else kNotDone.
ExitCode check(const Plugin& plugin, const CheckOptions& options);

}  // namespace ndk_integrate

#endif
