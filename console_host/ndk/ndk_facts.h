// What the files of a directory say, apart from any verdict.
#ifndef CONSOLE_HOST_NDK_NDK_FACTS_H
#define CONSOLE_HOST_NDK_NDK_FACTS_H

#include <optional>
#include <string>
#include <vector>

#include "console_host/ndk/plugin.h"

namespace ndk_integrate {

struct NdkFacts {
  std::string description;             // Pkg.Desc; "" when there is none
  std::string revision;                // Pkg.Revision; "" when there is none
  std::optional<std::string> release;  // "r21e" as the plug-in tells it, where it can be told
  std::string old_release;             // "r10e" of RELEASE.TXT, where there are no properties
  bool lacks_properties = false;  // nothing has the name source.properties, and one may look there
  bool prerelease = false;        // a beta or the like
};

// The facts of the directory `dir`, an absolute path in its normal form.
NdkFacts read_facts(const Plugin& plugin, const std::string& dir);

// The release of the NDK in `dir` as the plug-in tells it, where it can be told.
std::optional<std::string> readable_release(const Plugin& plugin, const std::string& dir);

// The property Pkg.Revision of the NDK in `dir`; "" when there is none.
std::string read_revision(const std::string& dir);

// True when `dir` has what every NDK has: a launcher, and source.properties or RELEASE.TXT.
bool looks_like_ndk(const std::string& dir);

// The newest NDK in `dir`, which may be an SDK: directly in it or in its ndk/; a beta only where
// there is no other. "" when there is none.
std::string newest_ndk_in(const std::string& dir);

// `dirs` with the newest revision first; those without one come last, in the order given.
std::vector<std::string> newest_first(const std::vector<std::string>& dirs);

// The directories in `parent` whose names begin with `prefix`, by name. `parent` itself where it
// may not be looked into.
std::vector<std::string> subdirectories(const std::string& parent, const std::string& prefix);

}  // namespace ndk_integrate

#endif
