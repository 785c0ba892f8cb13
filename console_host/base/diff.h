// The differences between two texts.
#ifndef CONSOLE_HOST_BASE_DIFF_H
#define CONSOLE_HOST_BASE_DIFF_H

#include <string>

namespace ndk_integrate {

// The differences between `before` and `after`, two texts of the file named `name`, in the unified
// form; "" when there are none. The program diff makes them, from copies in the directory for
// temporary files. Throws std::runtime_error when it cannot.
std::string diff(const std::string& name, const std::string& before, const std::string& after);

}  // namespace ndk_integrate

#endif
