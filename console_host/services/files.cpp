// The contract's file services.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <system_error>

#include "console_host/base/files.h"
#include "console_host/base/paths.h"
#include "console_host/services/read_only.h"
#include "console_host/services/service_observer.h"
#include "host/host.h"

namespace ndk_integrate {

namespace {

// The contract gives is_writable nothing but the directory.
bool read_only_accepted = false;

}  // namespace

ReadOnlyAccepted::ReadOnlyAccepted(bool accepted) { read_only_accepted = accepted; }
ReadOnlyAccepted::~ReadOnlyAccepted() { read_only_accepted = false; }

}  // namespace ndk_integrate

using ndk_integrate::ServiceObserver;

// The normal form of the path, or what the observer makes of it: during an installation the
// compiler's own files are answered with copies.
std::string path(std::string p) {
  const std::string normal = ndk_integrate::normal_path(p);
  ServiceObserver* observer = ndk_integrate::service_observer();
  return observer == nullptr ? normal : observer->path_asked(normal);
}

// An ordinary file, links followed; with true for `flag` a directory counts too.
int file_exists(const std::string& file, bool flag) {
  return ndk_integrate::is_ordinary_file(file) || (flag && ndk_integrate::is_directory(file)) ? 1
                                                                                              : 0;
}

// The effective user may write and enter the directory, and its file system is not read-only. The
// plug-in does not log why a directory is not writable, so this does.
int is_writable(std::string dir) {
  if (ndk_integrate::read_only_accepted) {
    return 1;
  }
  const int why_not = ndk_integrate::why_not_writable(dir);
  if (why_not != 0) {
    print_log("is_writable: cannot write in '%s': %s", dir.c_str(), std::strerror(why_not));
  }
  return why_not == 0 ? 1 : 0;
}

// One atomic rename. The new file takes the replaced file's mode, and its owner where that is
// permitted.
int file_move(std::string from, std::string to) {
  bool done = false;
  try {
    ndk_integrate::take_over_mode_and_owner(from, to);
    done = std::rename(from.c_str(), to.c_str()) == 0;
    if (!done) {
      print_log("ERROR: cannot move %s to %s: %s", from.c_str(), to.c_str(), std::strerror(errno));
    }
  } catch (const std::system_error& failure) {
    print_log("ERROR: cannot move %s to %s: %s", from.c_str(), to.c_str(),
              failure.code().message().c_str());
  }
  if (ServiceObserver* observer = ndk_integrate::service_observer()) {
    observer->moved(to, done);
  }
  return done ? 1 : 0;
}
