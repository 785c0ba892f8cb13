// What was probably meant by a name that is not known.
#ifndef CONSOLE_HOST_BASE_SIMILAR_NAMES_H
#define CONSOLE_HOST_BASE_SIMILAR_NAMES_H

#include <string>
#include <vector>

namespace ndk_integrate {

// The name in `known` that is nearest to `name`, "" when none is near: a slip or two away, another
// case, or shortened as "package_nr" is from "package_number".
std::string similar_name(const std::string& name, const std::vector<std::string>& known);

// " (did you mean 'NAME'?)" with that name, or "".
std::string did_you_mean(const std::string& name, const std::vector<std::string>& known);

}  // namespace ndk_integrate

#endif
