// Puts a file in the place of another, in one step, and looks at what came out: what somebody else
// put there meanwhile is never lost.
#ifndef CONSOLE_HOST_PACKAGE_REPLACEMENT_H
#define CONSOLE_HOST_PACKAGE_REPLACEMENT_H

#include <optional>
#include <string>

#include "console_host/base/directory.h"
#include "console_host/base/file.h"
#include "console_host/package/compiler_tree.h"

namespace ndk_integrate {

struct Replacement {
  const Directory& staging;
  std::string entry;  // there, of the new file, which is whole and has its mode
  const File& file;   // the new file, open
  const Place& place;

  // What is to be at the place: these bytes in an ordinary file, or nothing.
  std::optional<std::string> expected;

  // True when whatever is there gives way, and is kept beside.
  bool gives_up_what_is_there = false;
};

// Does it; the new file and the place are on the disk when it returns. What came out and was
// expected is removed. Returns the name under which something was kept beside, "" when nothing was.
// Throws std::runtime_error, naming the file, when it was not done; a file that was changed by
// somebody else is then in its place, or kept beside and named. Where the file system cannot let
// two files change their places, the look comes just before.
std::string replace(const Replacement& replacement);

// True when `file` is at `place`, or that cannot be told.
bool is_in_place(const File& file, const Place& place);

// Moves `entry` of `staging` to a free name beside `place`; returns that name. On the disk when it
// returns.
std::string keep_beside(const Directory& staging, const std::string& entry, const Place& place);

}  // namespace ndk_integrate

#endif
