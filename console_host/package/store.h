// What the program keeps in the directory .ndk-integrate of an installed compiler: the originals of
// the files it changed, and a manifest that says which file had which original and what was put in
// its place. With these an installation can be repeated, directed to another NDK, and undone.
//
// Layout of .ndk-integrate, which an install or undo at work has locked (lock.h):
//   manifest.json     {"schema":1,
//                      "installations":{VERSION:{"ndk":DIR|null,"release":TEXT|null,
//                        "component":TEXT,"time":"2026-11-21T20:09:34Z","finished":true}...},
//                      "files":{PATH:{"original":HASH,"mode":"644","results":[HASH...],
//                        "placeholders":[TEXT...],"installations":[VERSION...]}...}}
//                     each PATH is relative to the compiler's directory, each HASH a SHA-256 in
//                     hexadecimal, each VERSION a compiler's full one
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
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace ndk_integrate {

// What is kept of one installation.
struct InstallationRecord {
  std::string version;                 // the compiler's full one
  std::optional<std::string> ndk;      // the NDK's directory; none where integration is disabled
  std::optional<std::string> release;  // the NDK's, such as "r11c"
  std::string component;
  std::string time;          // when it began, in UTC: "2026-11-21T20:09:34Z"
  bool is_finished = false;  // false when it was cut short, or its script failed
};

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

  // The files of which an original is kept for the compiler's version `version`.
  std::vector<std::string> known_files(const std::string& version) const;

  // True when another version's installation has changed the known file `path` too.
  bool is_shared(const std::string& path, const std::string& version) const;

  // What is kept of the installation of `version`.
  std::optional<InstallationRecord> installation(const std::string& version) const;

  State state(const std::string& path) const;

  // What to say and do where somebody else changed the file; "" where nobody did.
  std::string why_edited(const std::string& path) const;

  // Throws std::runtime_error with that text where somebody else changed the file.
  void refuse_edited(const std::string& path) const;

  // The file's original: the one kept, or the file itself. Throws std::runtime_error when the kept one
  // is damaged or missing.
  Original original(const std::string& path) const;

  // Keeps `original` as the file's original.
  void keep(const std::string& path, const Original& original);

  // Says that the installation of `version`, where there is one, is about to be changed: until it is
  // settled or forgotten it has not come to its end.
  void reopen(const std::string& version);

  // A result that is about to be put in a file's place.
  struct Result {
    std::string path;
    std::string bytes;
    std::set<std::string> placeholders;  // what was replaced in it
  };

  // Notes that these results, of the installation `record`, are about to be put in their files'
  // places.
  void note(const InstallationRecord& record, const std::vector<Result>& results);

  // Says that the results noted last are in their places, and ends a run: earlier ones are
  // forgotten.
  void settle(const InstallationRecord& record);

  // Forgets the installation of `version`, and the originals of its files but for these, which stay
  // its own.
  void forget(const std::string& version, const std::set<std::string>& all_but);

  // Removes staged copies, and originals that no file has.
  void clean() const;

 private:
  struct Entry {
    std::string original;
    mode_t mode;
    std::set<std::string> results;
    std::set<std::string> placeholders;
    std::set<std::string> installations;  // the versions; empty where an older program kept it
  };

  struct Contents {
    std::map<std::string, InstallationRecord> installations;  // by version
    std::map<std::string, Entry> files;                       // by path, relative to the root
  };

  std::string relative(const std::string& path) const;
  std::string kept_as(const std::string& path) const;  // where a known file's original is
  std::string manifest() const { return directory() + "/manifest.json"; }
  std::string old_manifest() const { return directory() + "/manifest.undone"; }
  std::string originals() const { return directory() + "/originals"; }
  void load();
  void save(const Contents& contents);

  std::string root_;
  Contents contents_;                         // as the manifest on the disk has them
  std::map<std::string, std::string> noted_;  // the hashes of the results noted last, by path
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
