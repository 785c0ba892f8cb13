// What the program keeps in the directory .ndk-integrate of an installed compiler: the originals of
// the files it changed, and a manifest that says which file had which original and what was put in
// its place. With these an installation can be repeated, directed to another NDK, and undone.
//
// Layout of .ndk-integrate:
//   lock              held while an install or undo is at work; see lock.h
//   manifest.json {"schema":1,"files":{"PATH":{"original":HASH,"mode":"644","results":[HASH...],
//                     "placeholders":[TEXT...]}...}}; each PATH is relative to the compiler's
//                     directory, each HASH a SHA-256 in hexadecimal
//   manifest.undone   the manifest after an undo, until the originals are removed
//   originals/HASH    the bytes of an original
//   staged/           copies that are being worked on; thrown away by the next run
//
// A file is changed in this order, each step on the disk before the next: its original is kept, the
// manifest names the original, the manifest names the result, the result is renamed into its place.
// So whenever the program is killed, the file is whole and is either its original or a result that
// the manifest knows.
#ifndef CONSOLE_HOST_PACKAGE_STORE_H
#define CONSOLE_HOST_PACKAGE_STORE_H

#include <sys/types.h>

#include <map>
#include <set>
#include <string>
#include <vector>

namespace ndk_integrate {

class Store {
 public:
  // What a file is, compared with what is known of it.
  enum class State {
    kUnknown,      // nothing is known of it: it is its own original
    kOriginal,     // it is the original that is kept
    kResult,       // it is what was put in the original's place
    kReinstalled,  // it is neither, but nobody's edit: it holds placeholders, or was never changed
                   // here
    kEdited,       // it is neither: somebody else changed it
    kMissing,      // it is not there
  };

  // A file's original.
  struct Original {
    std::string bytes;
    mode_t mode;
  };

  // The directory in which things are kept of the compiler in `root`.
  static std::string directory_in(const std::string& root) { return root + "/.ndk-integrate"; }

  // What is kept of the compiler in `root`, an absolute path without a "/" at its end. Reads the
  // manifest, changes nothing. Throws std::runtime_error when the manifest is damaged.
  explicit Store(std::string root);

  const std::string& root() const { return root_; }
  std::string directory() const { return directory_in(root_); }
  std::string staging_directory() const { return directory() + "/staged"; }

  // True when `path` is below the compiler's directory. Those are the paths that the functions
  // below take.
  bool covers(const std::string& path) const;

  // The files of which an original is kept.
  std::vector<std::string> known_files() const;

  State state(const std::string& path) const;

  // Throws std::runtime_error that names the file when somebody else changed it.
  void refuse_edited(const std::string& path) const;

  // The file's original: the one kept, or the file itself. Throws std::runtime_error when the kept one
  // is damaged or missing.
  Original original(const std::string& path) const;

  // Keeps `original` as the file's original.
  void keep(const std::string& path, const Original& original);

  // A result that is about to be put in a file's place.
  struct Result {
    std::string path;
    std::string bytes;
    std::set<std::string> placeholders;  // what was replaced in it
  };

  // Notes that these results are about to be put in their files' places.
  void note(const std::vector<Result>& results);

  // Says that these results are in their places, and ends a run: earlier results, originals that no
  // file has any more and staged copies are forgotten.
  void settle(const std::vector<Result>& results);

  // Forgets the originals of all known files but these.
  void forget_all_but(const std::set<std::string>& paths);

  // Removes staged copies, and originals that no file has.
  void clean() const;

 private:
  struct Entry {
    std::string original;
    mode_t mode;
    std::set<std::string> results;
    std::set<std::string> placeholders;
  };

  using Entries = std::map<std::string, Entry>;  // by path, relative to the root

  std::string relative(const std::string& path) const;
  std::string kept_as(const std::string& path) const;  // where a known file's original is
  std::string manifest() const { return directory() + "/manifest.json"; }
  std::string old_manifest() const { return directory() + "/manifest.undone"; }
  std::string originals() const { return directory() + "/originals"; }
  void load();
  void save(const Entries& entries);

  std::string root_;
  Entries entries_;         // as the manifest on the disk has them
  bool is_certain_ = true;  // false when that is not known, because writing the manifest failed
};

// The staging directory of a store: empty to begin with, and gone with this object. What a killed
// run left behind goes too.
class StagingDirectory {
 public:
  explicit StagingDirectory(const Store& store);
  ~StagingDirectory();
  StagingDirectory(const StagingDirectory&) = delete;
  StagingDirectory& operator=(const StagingDirectory&) = delete;

  std::string name() const { return store_.staging_directory(); }

 private:
  const Store& store_;
};

}  // namespace ndk_integrate

#endif
