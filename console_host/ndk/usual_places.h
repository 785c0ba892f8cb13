// Where people expect an NDK to be looked for.
#ifndef CONSOLE_HOST_NDK_USUAL_PLACES_H
#define CONSOLE_HOST_NDK_USUAL_PLACES_H

#include <string>
#include <vector>

namespace ndk_integrate {

// The directories of the default search that exist, in the order in which they are to be tried: the
// environment's, the SDKs' (newest revision first), the distributions', unpacked archives. One that
// is reached twice stands here once.
std::vector<std::string> usual_places();

}  // namespace ndk_integrate

#endif
