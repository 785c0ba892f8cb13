#include "console_host/base/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace ndk_integrate {

bool is_ordinary_file(const std::string& name) {
  struct stat status {};
  return stat(name.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

bool is_directory(const std::string& name) {
  struct stat status {};
  return stat(name.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

int why_not_writable(const std::string& dir) {
  struct stat status {};
  if (stat(dir.c_str(), &status) == 0 && !S_ISDIR(status.st_mode)) {
    return ENOTDIR;
  }
  return faccessat(AT_FDCWD, dir.c_str(), W_OK | X_OK, AT_EACCESS) == 0 ? 0 : errno;
}

}  // namespace ndk_integrate
