// The contract's file services.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "console_host/integration_record.h"
#include "host/host.h"

// A doubled "/" becomes one and a trailing "/" goes, but not the root's; links, "." and ".." stay.
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
  if (IntegrationRecord* record = IntegrationRecord::current()) {
    record->path_asked(normal);
  }
  return normal;
}

// An ordinary file, links followed; with true for `flag` a directory counts too.
int file_exists(const std::string& file, bool flag) {
  struct stat status {};
  if (stat(file.c_str(), &status) != 0) {
    return 0;
  }
  return S_ISREG(status.st_mode) || (flag && S_ISDIR(status.st_mode)) ? 1 : 0;
}

// The effective user may write and enter the directory, and its file system is not read-only.
int is_writable(std::string dir) {
  struct stat status {};
  const bool is_directory = stat(dir.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
  return is_directory && faccessat(AT_FDCWD, dir.c_str(), W_OK | X_OK, AT_EACCESS) == 0 ? 1 : 0;
}

// One atomic rename. The new file takes the replaced file's mode, and its owner where that is
// permitted.
int file_move(std::string from, std::string to) {
  struct stat replaced {};
  if (stat(to.c_str(), &replaced) == 0 && S_ISREG(replaced.st_mode)) {
    // Only root may give a file away. The mode comes second because changing the owner takes away
    // the set-user-ID bit.
    [[maybe_unused]] const int ignored = chown(from.c_str(), replaced.st_uid, replaced.st_gid);
    chmod(from.c_str(), replaced.st_mode & 07777);
  }
  const bool done = std::rename(from.c_str(), to.c_str()) == 0;
  if (!done) {
    print_log("ERROR: cannot move %s to %s: %s", from.c_str(), to.c_str(), std::strerror(errno));
  }
  if (IntegrationRecord* record = IntegrationRecord::current()) {
    record->moved(to, done);
  }
  return done ? 1 : 0;
}
