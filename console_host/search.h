// Where people expect an NDK to be looked for.
#ifndef CONSOLE_HOST_SEARCH_H
#define CONSOLE_HOST_SEARCH_H

#include <string>
#include <vector>

// The directories of the default search that exist, in the order in which they are to be tried: the
// environment's, the SDKs' (newest revision first), the distributions', unpacked archives. One that
// is reached twice stands here once.
std::vector<std::string> default_search();

#endif
