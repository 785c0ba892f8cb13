// Where people expect an NDK to be looked for.
#ifndef CONSOLE_HOST_NDK_USUAL_PLACES_H
#define CONSOLE_HOST_NDK_USUAL_PLACES_H

#include <string>
#include <vector>

#include "console_host/ndk/judgement.h"
#include "console_host/ndk/project.h"

namespace ndk_integrate {

struct Places {
  std::vector<Candidate> candidates;
  std::vector<std::string> warnings;  // what is odd about the environment
};

// The directories of the default search, in the order in which they are to be tried: those that
// `project` names, the environment's, the SDKs' (newest revision first), the distributions',
// unpacked archives. One that is reached twice stands here once. Those that do not exist are left
// out unless the project or a variable names them.
Places usual_places(const Project& project);

// The message of a candidate that is not good and that a variable or a project names: what is
// wrong, and which of the NDKs near it or among `others` was probably meant.
std::string with_hint(const Candidate& candidate, const Judgement& judgement,
                      const std::vector<Judgement>& others);

}  // namespace ndk_integrate

#endif
