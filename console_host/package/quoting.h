// What a shell makes of a name that is filled in between the quotes of a script.
#ifndef CONSOLE_HOST_PACKAGE_QUOTING_H
#define CONSOLE_HOST_PACKAGE_QUOTING_H

#include <string>

namespace ndk_integrate {

// Why the shell script `file`, whose template reads `text`, fails with `ndk_dir` in the place of
// `placeholder`; "" when it does not. One whose name ends in ".csh" is csh's.
std::string quoting_surprise(const std::string& file, const std::string& text,
                             const std::string& placeholder, const std::string& ndk_dir);

}  // namespace ndk_integrate

#endif
