#include "console_host/package/store.h"

#include <unistd.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "console_host/base/hash.h"
#include "console_host/base/system_call.h"
#include "console_host/base/text.h"
#include "console_host/package/reinstalled.h"

namespace ndk_integrate {

namespace {

constexpr const char* kManifest = "manifest.json";
constexpr const char* kOldManifest = "manifest.undone";
constexpr const char* kOriginals = "originals";
constexpr const char* kFresh = ".new";  // behind the name of a file that is being written

// The name without kFresh, "" where it does not end so.
std::string without_fresh(const std::string& name) {
  return ends_with(name, kFresh) ? name.substr(0, name.size() - std::string(kFresh).size()) : "";
}

}  // namespace

Store::Store(const CompilerTree& tree, const Lock* lock) : tree_(tree), lock_(lock) {
  if (lock_ != nullptr) {
    open(lock_->directory());
  } else {
    open(find_kept_directory(tree_, tree_.directory(), kDirectory));
  }
}

void Store::open(const std::optional<Directory>& directory) {
  if (!directory) {
    return;
  }
  originals_ = find_kept_directory(tree_, *directory, kOriginals);
  const std::string manifest = directory->name_of(kManifest);
  if (directory->status_of(kManifest)) {
    try {
      load(*directory);
    } catch (const std::exception& damage) {
      throw std::runtime_error("cannot use " + manifest + ": " + damage.what() +
                               "; the originals are in " + directory->name_of(kOriginals));
    }
  } else if (originals_ && !directory->status_of(kOldManifest)) {
    throw std::runtime_error(manifest + " is missing, which says whose originals are in " +
                             originals_->name() +
                             "; put it back, or remove that directory to give the originals up");
  }
}

void Store::load(const Directory& directory) {
  std::optional<File> file;
  try {
    file = directory.find_file(kManifest);
  } catch (const NotOrdinaryFile&) {
    throw std::runtime_error("it is not an ordinary file");
  }
  if (!file) {
    return;  // an undo has just removed it
  }
  if (const std::string why = tree_.why_not_kept_by_us(file->name(), file->status());
      !why.empty()) {
    throw std::runtime_error(why);
  }
  manifest_ = parse_manifest(file->read());
}

// Under another name first, so that the file is whole whenever it is there.
void Store::write(const Directory& into, const std::string& name, const std::string& bytes,
                  const std::string& what, bool is_handed_over) const {
  lock_->require_held();
  const std::string fresh = name + kFresh;
  into.remove_file(fresh);
  const File file = into.make_file(fresh, what);
  try {
    file.write(bytes, what);
    if (is_handed_over) {
      tree_.hand_over(file);
    }
    file.flush();
    into.rename(fresh, into, name);
  } catch (...) {
    unlinkat(into.number(), fresh.c_str(), 0);  // where it is still there
    throw;
  }
  into.flush();
}

void Store::save(const Manifest& manifest) {
  is_certain_ = false;
  write(kept(), kManifest, text_of(manifest), kept().name_of(kManifest), true);
  is_certain_ = true;
  manifest_ = manifest;
}

std::vector<std::string> Store::known_files(const std::string& version) const {
  std::vector<std::string> files;
  for (const auto& [path, entry] : manifest_.files) {
    if (entry.installations.empty() || entry.installations.count(version) != 0) {
      files.push_back(tree_.root() + "/" + path);
    }
  }
  return files;
}

std::vector<std::string> Store::all_files() const {
  std::vector<std::string> files;
  for (const auto& [path, entry] : manifest_.files) {
    files.push_back(tree_.root() + "/" + path);
  }
  return files;
}

const Manifest::Entry& Store::entry(const std::string& path) const {
  return manifest_.files.at(tree_.relative(path));
}

bool Store::is_shared(const std::string& path, const std::string& version) const {
  const std::set<std::string>& installations = entry(path).installations;
  return installations.size() > installations.count(version);
}

std::optional<InstallationRecord> Store::installation(const std::string& version) const {
  const auto found = manifest_.installations.find(version);
  return found == manifest_.installations.end() ? std::nullopt : std::optional(found->second);
}

bool Store::knows(const std::string& path, const std::string& bytes) const {
  const std::string hash = sha256(bytes);
  return hash == entry(path).original || entry(path).results.count(hash) != 0;
}

Store::State Store::state(const std::string& path, const Found& found) const {
  if (manifest_.files.count(tree_.relative(path)) == 0) {
    return State::kUnknown;
  }
  if (found.kind != Found::Kind::kOrdinary) {
    return found.kind == Found::Kind::kMissing ? State::kMissing : State::kNotAFile;
  }
  const Manifest::Entry& known = entry(path);
  const std::string hash = sha256(found.bytes);
  if (hash == known.original) {
    return State::kOriginal;
  }
  if (known.results.count(hash) != 0) {
    return State::kResult;
  }
  if (known.results.empty()) {
    return State::kReinstalled;
  }
  const std::optional<Original> original = kept_original(path);
  return original && is_reinstalled(found.bytes, original->bytes, known.placeholders, known.filled)
             ? State::kReinstalled
             : State::kEdited;
}

std::string Store::why_edited(const std::string& path, const Found& found) const {
  if (state(path, found) != State::kEdited) {
    return "";
  }
  return path +
         " was changed by someone else since ndk-integrate wrote it, so it is left as it is, and so "
         "is everything else; to give that change up, put its original there: cat " +
         kept_as(path) + " > " + path + ", or undo with --force " + path +
         ", which keeps the change beside it";
}

// The original that is kept; nothing when it is missing or damaged.
std::optional<Store::Original> Store::kept_original(const std::string& path) const {
  const Found kept = originals_ ? look_at(*originals_, entry(path).original) : Found{};
  if (kept.kind != Found::Kind::kOrdinary || sha256(kept.bytes) != entry(path).original) {
    return std::nullopt;
  }
  // An older program left all to root where root worked for the tree's owner, also the directory.
  const bool is_handed_over = originals_->status().st_uid != 0;
  return Original{kept.bytes, entry(path).mode,
                  is_handed_over && tree_.is_secret_of_root(kept.file->status())};
}

Store::Original Store::original(const std::string& path, const Found& found) const {
  const State known_as = state(path, found);
  if (known_as == State::kUnknown || known_as == State::kOriginal ||
      known_as == State::kReinstalled) {
    const struct stat status = found.file->status();
    return {found.bytes, status.st_mode & kModeBits, tree_.is_secret_of_root(status)};
  }
  std::optional<Original> kept = kept_original(path);
  if (!kept) {
    throw std::runtime_error("the original of " + path + " that is kept as " + kept_as(path) +
                             " is missing or damaged; reinstall the compiler package");
  }
  return std::move(*kept);
}

std::string Store::original_hash(const std::string& path) const { return entry(path).original; }

std::string Store::kept_as(const std::string& path) const {
  return directory() + "/" + kOriginals + "/" + entry(path).original;
}

Directory Store::made_originals() {
  if (!originals_) {
    const bool is_new = kept().make_directory(kOriginals);
    originals_ = find_kept_directory(tree_, kept(), kOriginals);
    if (!originals_) {
      throw std::runtime_error("someone else removed " + kept().name_of(kOriginals) + " just now");
    }
    if (is_new && originals_->status().st_uid == geteuid()) {
      tree_.hand_over(*originals_);
    }
  }
  return *originals_;
}

void Store::keep(const std::string& path, const Original& original) {
  const std::string hash = sha256(original.bytes);
  Manifest next = manifest_;
  Manifest::Entry& kept_entry = next.files[tree_.relative(path)];
  if (kept_entry.original == hash && kept_entry.mode == original.mode) {
    return;
  }
  if (kept_entry.original == hash) {
    kept_entry.mode = original.mode;  // reinstalled with the same bytes
  } else {
    const std::set<std::string> installations = kept_entry.installations;
    kept_entry = {};
    kept_entry.original = hash;
    kept_entry.mode = original.mode;
    kept_entry.installations = installations;
    if (!kept().status_of(kManifest)) {
      save({});  // so that there are never originals without a manifest
    }
    write(made_originals(), hash, original.bytes, path, !original.is_secret_of_root);
  }
  save(next);
}

void Store::reopen(const std::string& version) {
  Manifest next = manifest_;
  const auto found = next.installations.find(version);
  if (found != next.installations.end() && found->second.is_finished) {
    found->second.is_finished = false;
    save(next);
  }
}

void Store::note(const InstallationRecord& record, const std::vector<Result>& results) {
  Manifest next = manifest_;
  next.installations[record.version] = record;
  for (const Result& result : results) {
    const std::string path = tree_.relative(result.path);
    Manifest::Entry& known = next.files.at(path);
    noted_[path] = sha256(result.bytes);
    known.results.insert(noted_[path]);
    known.placeholders.insert(result.placeholders.begin(), result.placeholders.end());
    const std::set<std::string> filled = filled_lines(result.original, result.bytes);
    known.filled.insert(filled.begin(), filled.end());
    known.installations.insert(record.version);
  }
  save(next);
}

void Store::settle(const InstallationRecord& record, const std::set<std::string>& changed_since) {
  if (noted_.empty()) {
    return;
  }
  Manifest next = manifest_;
  next.installations[record.version] = record;
  for (const auto& [path, hash] : noted_) {
    if (changed_since.count(tree_.directory().name_of(path)) == 0) {
      next.files.at(path).results = {hash};
    }
  }
  save(next);
}

void Store::forget(const std::string& version, const std::set<std::string>& all_but) {
  lock_->require_held();
  Manifest next = manifest_;
  next.installations.erase(version);
  for (const std::string& file : known_files(version)) {
    if (all_but.count(file) == 0) {
      const std::string path = tree_.relative(file);
      Manifest::Entry& known = next.files.at(path);
      known.installations.erase(version);
      if (known.installations.empty()) {
        next.files.erase(path);
      }
    }
  }
  if (next.files.empty()) {
    // A rename, because a full disk would forbid to write an empty manifest.
    is_certain_ = false;
    kept().rename(kManifest, kept(), kOldManifest);
    kept().flush();
    is_certain_ = true;
    manifest_ = {};
  } else {
    save(next);
  }
}

// The manifest goes last, so that there are never originals without one.
void Store::clean() {
  kept().remove_file(std::string(kManifest) + kFresh);
  kept().remove_file("lock");  // an older program's
  const bool is_undone = kept().status_of(kOldManifest).has_value();
  const std::string last = is_undone ? kOldManifest : kManifest;
  if (!is_certain_ || (!is_undone && !kept().status_of(kManifest))) {
    return;
  }
  remove_unneeded_originals();
  if (manifest_.files.empty()) {
    // It stays when somebody else keeps things there.
    kept().remove_directory(kOriginals);
    if (!kept().status_of(kOriginals)) {
      originals_.reset();
      kept().flush();
      kept().remove_file(last);
    }
  } else if (is_undone) {
    kept().remove_file(kOldManifest);
  }
  kept().flush();
}

void Store::remove_unneeded_originals() const {
  if (!originals_) {
    return;
  }
  std::set<std::string> needed;
  for (const auto& [path, known] : manifest_.files) {
    needed.insert(known.original);
  }
  for (const std::string& name : originals_->entries()) {
    const std::string fresh = without_fresh(name);
    if (is_hash(fresh) || (is_hash(name) && needed.count(name) == 0)) {
      originals_->remove_file(name);
    }
  }
}

}  // namespace ndk_integrate
