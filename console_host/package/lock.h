// One install or undo at a time on an installed compiler.
#ifndef CONSOLE_HOST_PACKAGE_LOCK_H
#define CONSOLE_HOST_PACKAGE_LOCK_H

#include <sys/types.h>

#include <string>

#include "console_host/base/file_descriptor.h"

namespace ndk_integrate {

// Holds the lock file of a compiler. The integration script inherits it, so that the lock lasts as
// long as the script even when this program is killed. The file itself is never removed: a process
// that waits on a removed file would lock nothing.
class Lock {
 public:
  // Takes the lock file `dir`/lock, which is made when missing. Throws std::runtime_error that
  // names the process that holds it.
  explicit Lock(const std::string& dir);
  ~Lock();
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

  // Notes for others that the process `holder` holds the lock too.
  void add_holder(pid_t holder) const;

 private:
  FileDescriptor file_;
};

}  // namespace ndk_integrate

#endif
