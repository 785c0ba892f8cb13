#include "console_host/package/store.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>
#include <utility>

#include "console_host/base/durable_file.h"
#include "console_host/base/files.h"
#include "console_host/base/hash.h"
#include "console_host/services/log.h"

namespace ndk_integrate {

namespace fs = std::filesystem;

namespace {

constexpr mode_t kPermissions = 07777;
constexpr mode_t kReadable = 0644;
constexpr mode_t kSecret = 0600;  // an original may be

std::string octal(mode_t mode) {
  std::ostringstream text;
  text << std::oct << mode;
  return text.str();
}

mode_t from_octal(const std::string& text) {
  constexpr int kOctal = 8;
  return static_cast<mode_t>(std::stoul(text, nullptr, kOctal)) & kPermissions;
}

mode_t mode_of(const std::string& file) {
  struct stat status {};
  return stat(file.c_str(), &status) == 0 ? status.st_mode & kPermissions : kReadable;
}

bool is_there(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0 || errno != ENOENT;
}

// True when `path` is an S_IFDIR or S_IFREG itself, not a link to one.
bool is_kind(const std::string& path, mode_t kind) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0 && (status.st_mode & S_IFMT) == kind;
}

bool is_hash(const std::string& text) {
  constexpr std::size_t kDigits = 64;
  return text.size() == kDigits && text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

// Throws std::runtime_error when an entry of a manifest is none that this program writes.
void check_entry(const std::string& path, const std::string& original, const std::string& mode,
                 const std::set<std::string>& results) {
  const bool is_inside =
      !path.empty() && path[0] != '/' && ("/" + path + "/").find("/../") == std::string::npos;
  const bool is_octal =
      !mode.empty() && mode.size() <= 4 && mode.find_first_not_of("01234567") == std::string::npos;
  if (!is_inside || !is_octal || !is_hash(original) ||
      !std::all_of(results.begin(), results.end(), is_hash)) {
    throw std::runtime_error("the entry of '" + path + "' is damaged");
  }
}

bool holds_one_of(const std::string& bytes, const std::set<std::string>& placeholders) {
  return std::any_of(placeholders.begin(), placeholders.end(),
                     [&](const std::string& one) { return bytes.find(one) != std::string::npos; });
}

}  // namespace

Store::Store(std::string root) : root_(std::move(root)) {
  for (const std::string& dir : {directory(), originals()}) {
    if (is_there(dir) && !is_kind(dir, S_IFDIR)) {
      throw std::runtime_error(dir + " is no directory; ndk-integrate keeps originals there");
    }
  }
  if (is_there(manifest())) {
    try {
      load();
    } catch (const std::exception& damage) {
      if (!is_there(manifest())) {
        return;  // an undo has just removed it
      }
      throw std::runtime_error("cannot use " + manifest() + ": " + damage.what() +
                               "; the originals are in " + originals());
    }
  } else if (is_there(originals()) && !is_there(old_manifest())) {
    throw std::runtime_error(manifest() + " is missing, which says whose originals are in " +
                             originals() +
                             "; put it back, or remove that directory to give the originals up");
  }
}

bool Store::covers(const std::string& path) const {
  return path.compare(0, root_.size() + 1, root_ + "/") == 0;
}

std::string Store::relative(const std::string& path) const { return path.substr(root_.size() + 1); }

void Store::load() {
  if (!is_kind(manifest(), S_IFREG)) {
    throw std::runtime_error("it is no ordinary file");
  }
  const auto json = nlohmann::json::parse(read_whole_file(manifest()));
  if (json.at("schema") != 1) {
    throw std::runtime_error("it was written by a newer ndk-integrate");
  }
  for (const auto& [path, file] : json.at("files").items()) {
    const std::string mode = file.at("mode");
    check_entry(path, file.at("original"), mode, file.at("results"));
    entries_[path] = {file.at("original"), from_octal(mode), file.at("results"),
                      file.at("placeholders")};
  }
}

void Store::save(const Entries& entries) {
  auto files = nlohmann::json::object();
  for (const auto& [path, entry] : entries) {
    files[path] = {{"original", entry.original},
                   {"mode", octal(entry.mode)},
                   {"results", entry.results},
                   {"placeholders", entry.placeholders}};
  }
  const nlohmann::ordered_json json{{"schema", 1}, {"files", files}};
  const std::string fresh = manifest() + ".new";
  is_certain_ = false;
  write_file(fresh, json.dump(1) + "\n", kReadable, manifest());
  replace_file(fresh, manifest());
  is_certain_ = true;
  entries_ = entries;
}

std::vector<std::string> Store::known_files() const {
  std::vector<std::string> files;
  for (const auto& [path, entry] : entries_) {
    files.push_back(root_ + "/" + path);
  }
  return files;
}

Store::State Store::state(const std::string& path) const {
  const auto found = entries_.find(relative(path));
  if (found == entries_.end()) {
    return State::kUnknown;
  }
  if (!is_ordinary_file(path)) {
    return State::kMissing;
  }
  const Entry& entry = found->second;
  const std::string bytes = read_whole_file(path);
  const std::string hash = sha256(bytes);
  if (hash == entry.original) {
    return State::kOriginal;
  }
  if (entry.results.count(hash) != 0) {
    return State::kResult;
  }
  const bool never_changed_here = entry.results.empty();
  return never_changed_here || holds_one_of(bytes, entry.placeholders) ? State::kReinstalled
                                                                       : State::kEdited;
}

void Store::refuse_edited(const std::string& path) const {
  if (state(path) == State::kEdited) {
    throw std::runtime_error(path +
                             " was changed by someone else since ndk-integrate wrote it, so it is "
                             "left as it is, and so is everything else; to give that change up, "
                             "put its original there: cat " +
                             kept_as(path) + " > " + path);
  }
}

Store::Original Store::original(const std::string& path) const {
  const State known_as = state(path);
  if (known_as != State::kResult && known_as != State::kMissing) {
    return {read_whole_file(path), mode_of(path)};
  }
  const Entry& entry = entries_.at(relative(path));
  std::string bytes = read_whole_file(kept_as(path));
  if (sha256(bytes) != entry.original) {
    throw std::runtime_error("the original of " + path + " that is kept as " + kept_as(path) +
                             " is damaged; reinstall the compiler package");
  }
  return {std::move(bytes), entry.mode};
}

std::string Store::kept_as(const std::string& path) const {
  return originals() + "/" + entries_.at(relative(path)).original;
}

void Store::keep(const std::string& path, const Original& original) {
  const std::string hash = sha256(original.bytes);
  Entries next = entries_;
  Entry& entry = next[relative(path)];
  if (entry.original == hash && entry.mode == original.mode) {
    return;
  }
  if (entry.original == hash) {
    entry.mode = original.mode;  // reinstalled with the same bytes
  } else {
    entry = {hash, original.mode, {}, {}};
    if (!is_there(manifest())) {
      save({});  // so that there are never originals without a manifest
    }
    make_directory(originals());
    const std::string kept = originals() + "/" + hash;
    write_file(kept + ".new", original.bytes, kSecret, path);
    replace_file(kept + ".new", kept);
  }
  save(next);
}

void Store::note(const std::vector<Result>& results) {
  Entries next = entries_;
  for (const Result& result : results) {
    Entry& entry = next.at(relative(result.path));
    entry.results.insert(sha256(result.bytes));
    entry.placeholders.insert(result.placeholders.begin(), result.placeholders.end());
  }
  save(next);
}

void Store::settle(const std::vector<Result>& results) {
  Entries next = entries_;
  for (const Result& result : results) {
    next.at(relative(result.path)).results = {sha256(result.bytes)};
  }
  if (!results.empty()) {
    save(next);
  }
}

void Store::forget_all_but(const std::set<std::string>& paths) {
  Entries next;
  for (const std::string& path : paths) {
    next[relative(path)] = entries_.at(relative(path));
  }
  if (next.empty()) {
    // A rename, because a full disk would forbid to write an empty manifest.
    replace_file(manifest(), old_manifest());
    entries_.clear();
  } else {
    save(next);
  }
}

// The manifest goes last, so that there are never originals without one.
void Store::clean() const {
  fs::remove_all(staging_directory());
  fs::remove(manifest() + ".new");
  const std::string last = is_there(old_manifest()) ? old_manifest() : manifest();
  if (!is_certain_ || !is_there(last)) {
    return;
  }
  std::set<std::string> needed;
  for (const auto& [path, entry] : entries_) {
    needed.insert(entry.original);
  }
  std::error_code none;
  const std::string fresh = ".new";
  for (fs::directory_iterator original(originals(), none), end; original != end; ++original) {
    const std::string name = original->path().filename().string();
    const bool is_fresh = name.size() > fresh.size() &&
                          name.compare(name.size() - fresh.size(), fresh.size(), fresh) == 0;
    const std::string hash = is_fresh ? name.substr(0, name.size() - fresh.size()) : name;
    if (is_hash(hash) && (is_fresh || needed.count(hash) == 0)) {
      fs::remove(original->path());
    }
  }
  if (needed.empty()) {
    fs::remove(originals(), none);  // stays when somebody else keeps things there
    if (!is_there(originals())) {
      flush_to_disk(directory());
      remove_file(last);
    }
  }
  flush_to_disk(directory());
}

StagingDirectory::StagingDirectory(const Store& store) : store_(store) {
  store_.clean();
  make_directory(name());
}

StagingDirectory::~StagingDirectory() {
  try {
    store_.clean();
  } catch (const std::exception& failure) {
    add_to_log("ERROR: cannot clean up " + store_.directory() + ": " + failure.what());
  }
}

}  // namespace ndk_integrate
