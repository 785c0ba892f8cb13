// One installation or undo at a time in one compiler.
#ifndef CONSOLE_HOST_PACKAGE_LOCK_H
#define CONSOLE_HOST_PACKAGE_LOCK_H

#include <optional>
#include <string>

#include "console_host/base/directory.h"
#include "console_host/package/compiler_tree.h"

namespace ndk_integrate {

// Holds the lock on the directory in which things are kept of a compiler; the directory itself is
// locked, so there is no lock file that could be removed. The integration script inherits the lock,
// which lasts as long as the script and what it leaves behind, even when this program is killed.
class Lock {
 public:
  // Makes the directory `entry` of `tree`, for its owner only, when it is missing, judges it and
  // locks it. Throws std::runtime_error that names who holds the lock, or why the directory is not
  // to be trusted; nothing in it is touched then.
  Lock(const CompilerTree& tree, std::string entry);

  // Removes the directory when it is empty, and gives the lock back. Whoever opened the directory
  // before that finds that its name leads elsewhere by now, and begins anew.
  ~Lock();
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

  const Directory& directory() const { return *directory_; }

  // Throws std::runtime_error when the directory has been moved or removed, so that others could be
  // at work.
  void require_held() const;

 private:
  bool take();
  bool take_what_is_there();
  void leave() const;
  bool is_still_there() const;

  const CompilerTree& tree_;
  std::string entry_;
  std::optional<Directory> directory_;
};

// The directory `entry` of `tree`, in which things are kept; nothing where it is missing. Throws
// std::runtime_error when it is not a directory, or belongs to somebody who has no business there.
std::optional<Directory> find_kept_directory(const CompilerTree& tree, const Directory& parent,
                                             const std::string& entry);

}  // namespace ndk_integrate

#endif
