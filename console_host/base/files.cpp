#include "console_host/base/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "console_host/base/file.h"
#include "console_host/base/system_call.h"

namespace ndk_integrate {

std::optional<struct stat> find_status(const std::string& name) {
  struct stat status {};
  if (stat(name.c_str(), &status) == 0) {
    return status;
  }
  if (errno != ENOENT && errno != ENOTDIR) {
    throw_system_error("look at " + name);
  }
  return std::nullopt;
}

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

void take_over_mode_and_owner(const std::string& file, const std::string& model) {
  constexpr mode_t kRunAsOwnerOrGroup = 06000;
  struct stat status {};
  if (stat(model.c_str(), &status) != 0) {
    if (errno == ENOENT) {
      return;
    }
    throw_system_error("look at " + model);
  }
  if (!S_ISREG(status.st_mode)) {
    return;
  }
  mode_t mode = status.st_mode & kModeBits;
  if (chown(file.c_str(), status.st_uid, status.st_gid) != 0) {
    if (errno != EPERM && errno != EINVAL) {
      throw_system_error("set the owner of " + file);
    }
    // Only root may give a file away, but its group may be another of the user's own. A program
    // that ran as its owner must not run as somebody else.
    constexpr auto kAsItIs = static_cast<uid_t>(-1);
    [[maybe_unused]] const int ignored = chown(file.c_str(), kAsItIs, status.st_gid);
    mode &= ~kRunAsOwnerOrGroup;
  }
  if (chmod(file.c_str(), mode) != 0) {  // after the owner, whose change takes bits away
    throw_system_error("set the mode of " + file);
  }
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
