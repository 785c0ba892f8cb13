// Names of files and directories as texts; nothing here looks at the disk.
#ifndef CONSOLE_HOST_BASE_PATHS_H
#define CONSOLE_HOST_BASE_PATHS_H

#include <string>

namespace ndk_integrate {

// `path` with a doubled "/" made one and a trailing "/" gone, but not the root's; links, "." and
// ".." stay.
std::string normal_path(const std::string& path);

// True when `path` is a name below the directory `dir`, both in their normal form. One that a ".."
// may lead out again is not.
bool is_below(const std::string& path, const std::string& dir);

// The directory that holds `file`, an absolute path.
std::string directory_of(const std::string& file);

// The working directory; "" when it has none, as when it was removed.
std::string working_directory();

// `text` as an absolute path: taken from the directory `base` when it is relative. "" stays "".
// Throws std::runtime_error when `text` is relative and `base` is "".
std::string absolute_path(const std::string& base, const std::string& text);

}  // namespace ndk_integrate

#endif
