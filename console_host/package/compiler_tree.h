// The installed compiler as a tree of files that may belong to somebody else than the caller and
// may change at any moment. Its directory is opened once; what is below it is reached from there.
#ifndef CONSOLE_HOST_PACKAGE_COMPILER_TREE_H
#define CONSOLE_HOST_PACKAGE_COMPILER_TREE_H

#include <sys/stat.h>

#include <optional>
#include <string>

#include "console_host/base/directory.h"
#include "console_host/base/file.h"

namespace ndk_integrate {

// Where a file is, or would be: an entry of an open directory.
struct Place {
  Directory directory;
  std::string entry;

  std::string name() const { return directory.name_of(entry); }
};

// What is at a place, as it was found at one moment.
struct Found {
  enum class Kind { kMissing, kOrdinary, kLink, kOther };

  Kind kind = Kind::kMissing;
  std::optional<File> file;  // where it is an ordinary one, open
  std::string bytes;         // that file's

  // True when it is an ordinary file that holds `expected`.
  bool holds(const std::string& expected) const {
    return kind == Kind::kOrdinary && bytes == expected;
  }
};

// Looks at a place. Throws std::runtime_error, naming the file, when it cannot be told what is
// there.
Found look_at(const Directory& directory, const std::string& entry);

class CompilerTree {
 public:
  // Opens the directory `root`, an absolute path without a "/" at its end; links to it are
  // followed. Throws std::runtime_error when it cannot be opened.
  explicit CompilerTree(const std::string& root);

  const Directory& directory() const { return directory_; }
  const std::string& root() const { return directory_.name(); }

  // True when `path` is below the root. Those are the paths that the functions below take.
  bool covers(const std::string& path) const;
  std::string relative(const std::string& path) const;

  // Where `path` is. Nothing where the directory that would hold it is missing. Throws
  // std::runtime_error when there is a link on the way.
  std::optional<Place> find(const std::string& path) const;

  // What is there. Throws as find() and look_at() do.
  Found look(const std::string& path) const;

  // Why the file `status` named `name` is not taken for one of the compiler's, "" when it is: it
  // belongs to somebody who has no business there, or is on another file system.
  std::string why_not_trusted(const std::string& name, const struct stat& status) const;

  // The same of a directory or a file that ndk-integrate keeps.
  std::string why_not_kept_by_us(const std::string& name, const struct stat& status) const;

  // True when root is at work in a tree that belongs to somebody else.
  bool is_somebody_elses() const;

  // True when root or the caller owns the tree.
  bool is_safe_by_name() const;

  // Gives what was just made to the owner of the tree, where root works for that owner: he is to go
  // on with it.
  void hand_over(const File& file) const;
  void hand_over(const Directory& directory) const;

  // True when `status` is a file of root's that the owner of the tree may not read. What it holds
  // stays root's, in each copy.
  bool is_secret_of_root(const struct stat& status) const;

  // Gives `file`, which is to take the place of `model`, the owner and attributes of it, and the
  // permission bits `mode`; a null `model` is none. Where root works in somebody else's tree, it
  // goes to the tree's owner, who may have written what it holds; only what is root's secret, or is
  // made of one (`is_secret`), stays root's. What may be somebody else's never runs as its owner.
  void dress(const File& file, const File* model, mode_t mode, bool is_secret) const;

 private:
  bool has_business_here(uid_t id) const;

  Directory directory_;
  struct stat status_ {};
};

// The tree with the root `root`; nothing where there is no such directory.
std::optional<CompilerTree> find_compiler_tree(const std::string& root);

}  // namespace ndk_integrate

#endif
