// The contract's file services.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "console_host/durable_file.h"
#include "console_host/integration.h"
#include "host/host.h"

// A doubled "/" becomes one and a trailing "/" goes, but not the root's; links, "." and ".." stay.
// During an integration the compiler's own files are answered with staged copies.
std::string path(std::string p) {
  std::string normal;
  for (const char c : p) {
    if (c != '/' || normal.empty() || normal.back() != '/') {
      normal += c;
    }
  }
  if (normal.size() > 1 && normal.back() == '/') {
    normal.pop_back();
  }
  Integration* integration = Integration::current();
  return integration == nullptr ? normal : integration->path_asked(normal);
}

// An ordinary file, links followed; with true for `flag` a directory counts too.
int file_exists(const std::string& file, bool flag) {
  struct stat status {};
  if (stat(file.c_str(), &status) != 0) {
    return 0;
  }
  return S_ISREG(status.st_mode) || (flag && S_ISDIR(status.st_mode)) ? 1 : 0;
}

// The effective user may write and enter the directory, and its file system is not read-only. The
// plug-in does not log why a directory is not writable, so this does.
int is_writable(std::string dir) {
  struct stat status {};
  if (stat(dir.c_str(), &status) == 0 && !S_ISDIR(status.st_mode)) {
    errno = ENOTDIR;
  } else if (faccessat(AT_FDCWD, dir.c_str(), W_OK | X_OK, AT_EACCESS) == 0) {
    return 1;
  }
  print_log("is_writable: cannot write in '%s': %s", dir.c_str(), std::strerror(errno));
  return 0;
}

// One atomic rename. The new file takes the replaced file's mode, and its owner where that is
// permitted.
int file_move(std::string from, std::string to) {
  take_over_mode_and_owner(from, to);
  const bool done = std::rename(from.c_str(), to.c_str()) == 0;
  if (!done) {
    print_log("ERROR: cannot move %s to %s: %s", from.c_str(), to.c_str(), std::strerror(errno));
  }
  if (Integration* integration = Integration::current()) {
    integration->moved(to, done);
  }
  return done ? 1 : 0;
}
