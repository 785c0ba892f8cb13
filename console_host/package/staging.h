// Where copies are worked on until they take their places.
#ifndef CONSOLE_HOST_PACKAGE_STAGING_H
#define CONSOLE_HOST_PACKAGE_STAGING_H

#include <string>
#include <vector>

#include "console_host/base/directory.h"
#include "console_host/base/temporary_directory.h"
#include "console_host/package/store.h"

namespace ndk_integrate {

// Throws std::runtime_error when `directory` is not the caller's own, for himself only.
void require_own(const Directory& directory);

// The same when it is not one that the caller just made: somebody put another in its place before
// it was opened.
void require_new(const Directory& directory);

// The staging directory of a run that commits: staged-RANDOM in the store, the caller's own, gone
// with this object.
//
// What is worked on there has any names that do not begin with "commit-". A file that is about to
// change places with one of the compiler's is renamed to commit_name() first; so when a run is
// killed, what has that name is a file whose bytes the store knows, or what came out of the file's
// place: and that may be somebody's edit.
class StagingDirectory {
 public:
  // Removes what runs left that were cut short, as far as the caller may, and makes a new one.
  explicit StagingDirectory(Store& store);
  ~StagingDirectory();
  StagingDirectory(const StagingDirectory&) = delete;
  StagingDirectory& operator=(const StagingDirectory&) = delete;

  const Directory& directory() const { return *directory_; }

  // The edits that a run that was cut short had taken out of their places, each in a sentence that
  // says where it is kept now.
  const std::vector<std::string>& rescued() const { return rescued_; }

  // The name of a file that is about to be put in the place of `path`.
  static std::string commit_name(const Store& store, const std::string& path);

 private:
  void make();
  void clean_up();
  void clean();
  void clean(const std::string& staged);
  void empty(const Directory& staged);
  void rescue(const Directory& staged, const std::string& entry);

  Store& store_;
  std::optional<Directory> directory_;
  std::vector<std::string> rescued_;
};

// The staging directory of a dry run: in TMPDIR.
class TemporaryStaging {
 public:
  TemporaryStaging();
  const Directory& directory() const { return directory_; }

 private:
  TemporaryDirectory temporary_;
  Directory directory_;
};

}  // namespace ndk_integrate

#endif
