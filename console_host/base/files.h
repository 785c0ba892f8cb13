// Files and directories by their names, links followed: for what is asked of a name that somebody
// gives. What is below a compiler's directory is reached as directory.h does.
#ifndef CONSOLE_HOST_BASE_FILES_H
#define CONSOLE_HOST_BASE_FILES_H

#include <sys/stat.h>

#include <cstddef>
#include <optional>
#include <string>

#include "console_host/base/file_descriptor.h"

namespace ndk_integrate {

// What `name` leads to; nothing where there is nothing. Throws std::system_error, naming it, when
// that cannot be told; the functions below then say no.
std::optional<struct stat> find_status(const std::string& name);

// True when `name` leads to an ordinary file.
bool is_ordinary_file(const std::string& name);

// True when `name` is an ordinary file itself, not a link to one.
bool is_ordinary_file_itself(const std::string& name);

// True when `name` leads to an ordinary file that the effective user may execute.
bool is_executable_file(const std::string& name);

// True when something has the name `name`, be it a link that leads nowhere.
bool is_taken(const std::string& name);

// True when `name` leads to a directory.
bool is_directory(const std::string& name);

// Gives `file` the permission bits and, where that is permitted, the owner of `model`. Does nothing
// without a `model` that is an ordinary file. Throws std::system_error.
void take_over_mode_and_owner(const std::string& file, const std::string& model);

// Opens the file that `name` leads to, without waiting for whoever writes to a pipe.
FileDescriptor open_to_read(const std::string& name);

// The first `most` bytes of the ordinary file that `name` leads to. Nothing when there is none or
// it cannot be read, with the reason in errno; 0 there says that it is something else.
std::optional<std::string> read_ordinary_file(const std::string& name, std::size_t most);
std::optional<std::string> read_ordinary_file(const FileDescriptor& file, std::size_t most);

// Why the effective user may not make files in the directory `dir`, or its file system is
// read-only, as an errno; 0 when files can be made there.
int why_not_writable(const std::string& dir);

}  // namespace ndk_integrate

#endif
