// One install or undo at a time on an installed compiler.
#ifndef CONSOLE_HOST_PACKAGE_LOCK_H
#define CONSOLE_HOST_PACKAGE_LOCK_H

#include <string>

#include "console_host/base/file_descriptor.h"

namespace ndk_integrate {

// Holds the lock on a directory in which a program keeps its things; the directory itself is locked,
// so there is no lock file that could be removed. The integration script inherits the lock, which
// lasts as long as the script even when this program is killed.
class Lock {
 public:
  // Makes the directory `dir`, for its owner only, when it is missing, and locks it. Throws
  // std::runtime_error that names who holds the lock.
  explicit Lock(std::string dir);

  // Removes the directory when it is empty, and gives the lock back. Whoever opened the directory
  // before that finds that its name leads elsewhere by now, and begins anew.
  ~Lock();
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

 private:
  bool take();  // false when another process holds it
  bool is_still_there() const;

  std::string dir_;
  FileDescriptor open_{-1};
};

}  // namespace ndk_integrate

#endif
