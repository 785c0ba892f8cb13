// What a name leads to, links followed.
#ifndef CONSOLE_HOST_BASE_FILES_H
#define CONSOLE_HOST_BASE_FILES_H

#include <string>

namespace ndk_integrate {

// True when `name` leads to an ordinary file.
bool is_ordinary_file(const std::string& name);

// True when `name` leads to a directory.
bool is_directory(const std::string& name);

// Why the effective user may not make files in the directory `dir`, or its file system is read-only,
// as an errno; 0 when files can be made there.
int why_not_writable(const std::string& dir);

}  // namespace ndk_integrate

#endif
