#include "console_host/base/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace ndk_integrate {

bool is_ordinary_file(const std::string& name) {
  struct stat status {};
  return stat(name.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

bool is_ordinary_file_itself(const std::string& name) {
  struct stat status {};
  return lstat(name.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

bool is_executable_file(const std::string& name) {
  return is_ordinary_file(name) && faccessat(AT_FDCWD, name.c_str(), X_OK, AT_EACCESS) == 0;
}

bool is_taken(const std::string& name) {
  struct stat status {};
  return lstat(name.c_str(), &status) == 0 || errno != ENOENT;
}

bool is_directory(const std::string& name) {
  struct stat status {};
  return stat(name.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

FileDescriptor open_to_read(const std::string& name) {
  return FileDescriptor(open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
}

std::optional<std::string> read_ordinary_file(const FileDescriptor& file, std::size_t most) {
  struct stat status {};
  if (!file.is_open() || fstat(file.number(), &status) != 0) {
    return std::nullopt;
  }
  if (!S_ISREG(status.st_mode)) {
    errno = 0;
    return std::nullopt;
  }
  std::string text(std::min(static_cast<std::size_t>(status.st_size), most), '\0');
  std::size_t size = 0;
  while (size < text.size()) {
    const ssize_t count = read(file.number(), &text[size], text.size() - size);
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count < 0) {
      return std::nullopt;
    }
    if (count == 0) {
      break;  // it has become shorter
    }
    size += static_cast<std::size_t>(count);
  }
  text.resize(size);
  return text;
}

std::optional<std::string> read_ordinary_file(const std::string& name, std::size_t most) {
  return read_ordinary_file(open_to_read(name), most);
}

int why_not_writable(const std::string& dir) {
  struct stat status {};
  if (stat(dir.c_str(), &status) == 0 && !S_ISDIR(status.st_mode)) {
    return ENOTDIR;
  }
  return faccessat(AT_FDCWD, dir.c_str(), W_OK | X_OK, AT_EACCESS) == 0 ? 0 : errno;
}

}  // namespace ndk_integrate
