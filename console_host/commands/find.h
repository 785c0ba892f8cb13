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

// A judgement as one JSON object, and as a line for people.
Json to_json(const Judgement& judgement);
std::string line_of(const Judgement& judgement);

struct FindOptions {
  std::vector<std::string> search;       // lists of directories; with none the default search
  std::optional<std::string> supported;  // without it any readable release is supported
  bool all = false;                      // judge every candidate, not only up to the first good one
  bool json = false;
};

// Throws UsageError when `search` is there and names no directory.
void require_directories(const FindOptions& options);

// Tells the verdict on each candidate and the NDK found. Returns kDone when one was found, else
// kNotDone.
ExitCode find(const Plugin& plugin, const FindOptions& options);

struct CheckOptions {
  std::string dir;
  std::optional<std::string> supported;
  bool json = false;
};

// Tells the verdict on one directory. Returns kDone when it is a good NDK, else kNotDone.
ExitCode check(const Plugin& plugin, const CheckOptions& options);

}  // namespace ndk_integrate

#endif
