// A directory for temporary files.
#ifndef CONSOLE_HOST_BASE_TEMPORARY_DIRECTORY_H
#define CONSOLE_HOST_BASE_TEMPORARY_DIRECTORY_H

#include <string>

namespace ndk_integrate {

// The directory for temporary files, TMPDIR or /tmp, as an absolute path. A relative one is taken
// from the directory that was the working directory when this was called first.
std::string directory_for_temporary_files();

// A new directory in `parent`, for its owner only, that goes with this object and all it holds.
class TemporaryDirectory {
 public:
  // Throws std::runtime_error when it cannot be made.
  explicit TemporaryDirectory(const std::string& parent);
  ~TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  const std::string& name() const { return name_; }

 private:
  std::string name_;
};

}  // namespace ndk_integrate

#endif
