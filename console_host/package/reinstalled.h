// Tells a template that was installed anew from an edit of what was made of it.
#ifndef CONSOLE_HOST_PACKAGE_REINSTALLED_H
#define CONSOLE_HOST_PACKAGE_REINSTALLED_H

#include <set>
#include <string>

namespace ndk_integrate {

// The lines of `result` that `original`, what it was made from, does not have; as hashes.
std::set<std::string> filled_lines(const std::string& original, const std::string& result);

// True when `bytes` is a template, such as another edition of the package has, and not an edit of
// what was made of `original`: it holds a placeholder between what the original has it between,
// none of the lines `filled` (above), and nothing that one of the original's lines with a
// placeholder could have become.
bool is_reinstalled(const std::string& bytes, const std::string& original,
                    const std::set<std::string>& placeholders, const std::set<std::string>& filled);

}  // namespace ndk_integrate

#endif
