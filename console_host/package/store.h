// What the program keeps in the directory .ndk-integrate of an installed compiler: the originals of
// the files it changed, and a manifest that says which file had which original and what was put in
// its place. With these an installation can be repeated, directed to another NDK, and undone.
//
// Layout of .ndk-integrate, which an install or undo at work has locked (lock.h):
//   manifest.json     {"schema":1,
//                      "installations":{VERSION:{"ndk":DIR|null,"release":TEXT|null,
//                        "component":TEXT,"time":"2026-11-21T20:09:34Z","finished":true}...},
//                      "files":{PATH:{"original":HASH,"mode":"644","results":[HASH...],
//                        "placeholders":[TEXT...],"filled":[HASH...],
//                        "installations":[VERSION...]}...}}
//                     each PATH is relative to the compiler's directory, each HASH a SHA-256 in
//                     hexadecimal, of a file's bytes or, in "filled", of a line that was filled in,
//                     each VERSION a compiler's full one
//   manifest.undone   the manifest after an undo, until the originals are removed
//   originals/HASH    the bytes of an original
//   staged-RANDOM/    copies that are being worked on (staging.h)
//
// A file is changed in this order, each step on the disk before the next: its original is kept, the
// manifest names the original, the manifest names the result, the result changes places with the
// file. So whenever the program is killed, the file is whole and is either its original or a result
// that the manifest knows.
#ifndef CONSOLE_HOST_PACKAGE_STORE_H
#define CONSOLE_HOST_PACKAGE_STORE_H

#include <sys/types.h>

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "console_host/base/directory.h"
#include "console_host/package/compiler_tree.h"
#include "console_host/package/lock.h"
#include "console_host/package/manifest.h"

namespace ndk_integrate {

class Store {
 public:
  // What a file is, compared with what is known of it.
  enum class State {
    kUnknown,      // nothing is known of it: it is its own original
    kOriginal,     // it is the original that is kept
    kResult,       // it is what was put in the original's place
    kReinstalled,  // it is neither, but nobody's edit: it is a template again, or was never changed
                   // here
    kEdited,       // it is neither: somebody else changed it
    kNotAFile,     // it is a link, a pipe or the like
    kMissing,      // it is not there
  };

  // A file's original.
  struct Original {
    std::string bytes;
    mode_t mode = 0;
    bool is_secret_of_root = false;
  };

  // The name in a compiler's directory of the one in which things are kept.
  static constexpr const char* kDirectory = ".ndk-integrate";
  static std::string directory_in(const std::string& root) { return root + "/" + kDirectory; }

  // What is kept of the compiler in `tree`. Reads the manifest, changes nothing. Throws
  // std::runtime_error when what is kept is damaged or not to be trusted. With a `lock` on it, the
  // functions below that write may be called.
  explicit Store(const CompilerTree& tree, const Lock* lock = nullptr);

  const CompilerTree& tree() const { return tree_; }
  std::string directory() const { return directory_in(tree_.root()); }

  // The open directory in which things are kept. Only with a lock.
  const Directory& kept() const { return lock_->directory(); }

  // The files of which an original is kept for the compiler's version `version`.
  std::vector<std::string> known_files(const std::string& version) const;

  // True when another version's installation has changed the known file `path` too.
  bool is_shared(const std::string& path, const std::string& version) const;

  // What is kept of the installation of `version`.
  std::optional<InstallationRecord> installation(const std::string& version) const;

  // What `path` is; `found` is what was found there.
  State state(const std::string& path) const { return state(path, tree_.look(path)); }
  State state(const std::string& path, const Found& found) const;

  // What to say and do where somebody else changed the file; "" where nobody did.
  std::string why_edited(const std::string& path) const {
    return why_edited(path, tree_.look(path));
  }
  std::string why_edited(const std::string& path, const Found& found) const;

  // The file's original: the one kept, or the file itself. Throws std::runtime_error when the kept
  // one is damaged or missing.
  Original original(const std::string& path, const Found& found) const;

  // The hash of the known file's original.
  std::string original_hash(const std::string& path) const;

  // Keeps `original` as the file's original.
  void keep(const std::string& path, const Original& original);

  // Says that the installation of `version`, where there is one, is about to be changed: until it
  // is settled or forgotten it has not come to its end.
  void reopen(const std::string& version);

  // A result that is about to be put in a file's place.
  struct Result {
    std::string path;
    std::string bytes;
    std::string original;                // the bytes that it was made from
    std::set<std::string> placeholders;  // what was replaced in it
  };

  // Notes that these results, of the installation `record`, are about to be put in their files'
  // places.
  void note(const InstallationRecord& record, const std::vector<Result>& results);

  // Says that the results noted last are in their places, and ends a run: earlier ones are
  // forgotten, but not those of the files `changed_since`.
  void settle(const InstallationRecord& record, const std::set<std::string>& changed_since);

  // Forgets the installation of `version`, and the originals of its files but for these, which stay
  // its own.
  void forget(const std::string& version, const std::set<std::string>& all_but);

  // Removes originals that no file has, and what a run that was cut short left.
  void clean();

  // True when `bytes` are the original or a result of the file `path`.
  bool knows(const std::string& path, const std::string& bytes) const;

  // All known files.
  std::vector<std::string> all_files() const;

  // False when it is not known what is on the disk, because writing the manifest failed.
  bool is_certain() const { return is_certain_; }

 private:
  std::string kept_as(const std::string& path) const;  // where a known file's original is
  const Manifest::Entry& entry(const std::string& path) const;
  std::optional<Original> kept_original(const std::string& path) const;
  void open(const std::optional<Directory>& directory);
  void load(const Directory& directory);
  void save(const Manifest& manifest);
  void write(const Directory& into, const std::string& name, const std::string& bytes,
             const std::string& what, bool is_handed_over) const;
  Directory made_originals();
  void remove_unneeded_originals() const;

  const CompilerTree& tree_;
  const Lock* lock_;
  std::optional<Directory> originals_;
  Manifest manifest_;                         // as it is on the disk
  std::map<std::string, std::string> noted_;  // the hashes of the results noted last, by path
  bool is_certain_ = true;
};

}  // namespace ndk_integrate

#endif
