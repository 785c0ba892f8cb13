#include "console_host/package/store.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>
#include <utility>

#include "console_host/base/durable_file.h"
#include "console_host/base/errors.h"
#include "console_host/base/files.h"
#include "console_host/base/hash.h"
#include "console_host/base/paths.h"
#include "console_host/services/log.h"

namespace ndk_integrate {

namespace fs = std::filesystem;

namespace {

constexpr mode_t kPermissions = 07777;
constexpr mode_t kReadable = 0644;
constexpr mode_t kSecret = 0600;  // an original may be
constexpr mode_t kUsual = 0777;
constexpr mode_t kOwnerOnly = 0700;

using Json = nlohmann::json;

std::optional<std::string> optional_text(const Json& json) {
  return json.is_null() ? std::nullopt : std::optional(json.get<std::string>());
}

Json json_of(const std::optional<std::string>& text) { return text ? Json(*text) : Json(nullptr); }

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
  if (is_kind(directory(), S_IFDIR) &&
      faccessat(AT_FDCWD, directory().c_str(), R_OK | X_OK, AT_EACCESS) != 0) {
    throw std::runtime_error("cannot look into " + directory() + ": " + system_error_text(errno) +
                             "; run as the user who installed");
  }
  for (const std::string& dir : {directory(), originals()}) {
    if (is_taken(dir) && !is_kind(dir, S_IFDIR)) {
      throw std::runtime_error(dir + " is not a directory; ndk-integrate keeps originals there");
    }
  }
  if (is_taken(manifest())) {
    try {
      load();
    } catch (const std::exception& damage) {
      if (!is_taken(manifest())) {
        return;  // an undo has just removed it
      }
      throw std::runtime_error("cannot use " + manifest() + ": " + damage.what() +
                               "; the originals are in " + originals());
    }
  } else if (is_taken(originals()) && !is_taken(old_manifest())) {
    throw std::runtime_error(manifest() + " is missing, which says whose originals are in " +
                             originals() +
                             "; put it back, or remove that directory to give the originals up");
  }
}

bool Store::covers(const std::string& path) const { return is_below(path, root_); }

std::string Store::relative(const std::string& path) const { return path.substr(root_.size() + 1); }

void Store::load() {
  if (!is_kind(manifest(), S_IFREG)) {
    throw std::runtime_error("it is not an ordinary file");
  }
  const auto json = nlohmann::json::parse(read_whole_file(manifest()));
  if (json.at("schema") != 1) {
    throw std::runtime_error("it was written by a newer ndk-integrate");
  }
  for (const auto& [path, file] : json.at("files").items()) {
    const std::string mode = file.at("mode");
    check_entry(path, file.at("original"), mode, file.at("results"));
    const Entry entry{file.at("original"), from_octal(mode), file.at("results"),
                      file.at("placeholders"),
                      file.value("installations", std::set<std::string>{})};
    // Neither where a run was killed before it noted a result: the file has not been touched.
    if (!entry.results.empty() || !entry.installations.empty()) {
      contents_.files[path] = entry;
    }
  }
  // Missing where an older program wrote it.
  const Json installations = json.value("installations", Json::object());
  for (const auto& [version, one] : installations.items()) {
    contents_.installations[version] = {version,
                                        optional_text(one.at("ndk")),
                                        optional_text(one.at("release")),
                                        one.at("component"),
                                        one.at("time"),
                                        one.at("finished")};
  }
}

void Store::save(const Contents& contents) {
  auto installations = Json::object();
  for (const auto& [version, one] : contents.installations) {
    installations[version] = {{"ndk", json_of(one.ndk)},
                              {"release", json_of(one.release)},
                              {"component", one.component},
                              {"time", one.time},
                              {"finished", one.is_finished}};
  }
  auto files = Json::object();
  for (const auto& [path, entry] : contents.files) {
    files[path] = {{"original", entry.original},
                   {"mode", octal(entry.mode)},
                   {"results", entry.results},
                   {"placeholders", entry.placeholders},
                   {"installations", entry.installations}};
  }
  const nlohmann::ordered_json json{
      {"schema", 1}, {"installations", installations}, {"files", files}};
  const std::string fresh = manifest() + ".new";
  is_certain_ = false;
  write_file(fresh, json.dump(1) + "\n", kReadable, manifest());
  flush_to_disk(fresh);
  replace_file(fresh, manifest());
  is_certain_ = true;
  contents_ = contents;
}

std::vector<std::string> Store::known_files(const std::string& version) const {
  std::vector<std::string> files;
  for (const auto& [path, entry] : contents_.files) {
    if (entry.installations.empty() || entry.installations.count(version) != 0) {
      files.push_back(root_ + "/" + path);
    }
  }
  return files;
}

bool Store::is_shared(const std::string& path, const std::string& version) const {
  const std::set<std::string>& installations = contents_.files.at(relative(path)).installations;
  return installations.size() > installations.count(version);
}

std::optional<InstallationRecord> Store::installation(const std::string& version) const {
  const auto found = contents_.installations.find(version);
  return found == contents_.installations.end() ? std::nullopt : std::optional(found->second);
}

Store::State Store::state(const std::string& path) const {
  const auto found = contents_.files.find(relative(path));
  if (found == contents_.files.end()) {
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

std::string Store::why_edited(const std::string& path) const {
  if (state(path) != State::kEdited) {
    return "";
  }
  return path +
         " was changed by someone else since ndk-integrate wrote it, so it is left as it is, and so "
         "is everything else; to give that change up, put its original there: cat " +
         kept_as(path) + " > " + path;
}

void Store::refuse_edited(const std::string& path) const {
  if (const std::string why = why_edited(path); !why.empty()) {
    throw std::runtime_error(why);
  }
}

Store::Original Store::original(const std::string& path) const {
  const State known_as = state(path);
  if (known_as != State::kResult && known_as != State::kMissing) {
    return {read_whole_file(path), mode_of(path)};
  }
  const Entry& entry = contents_.files.at(relative(path));
  std::string bytes = read_whole_file(kept_as(path));
  if (sha256(bytes) != entry.original) {
    throw std::runtime_error("the original of " + path + " that is kept as " + kept_as(path) +
                             " is damaged; reinstall the compiler package");
  }
  return {std::move(bytes), entry.mode};
}

std::string Store::kept_as(const std::string& path) const {
  return originals() + "/" + contents_.files.at(relative(path)).original;
}

void Store::keep(const std::string& path, const Original& original) {
  const std::string hash = sha256(original.bytes);
  Contents next = contents_;
  Entry& entry = next.files[relative(path)];
  if (entry.original == hash && entry.mode == original.mode) {
    return;
  }
  if (entry.original == hash) {
    entry.mode = original.mode;  // reinstalled with the same bytes
  } else {
    entry = {hash, original.mode, {}, {}, entry.installations};
    if (!is_taken(manifest())) {
      save({});  // so that there are never originals without a manifest
    }
    make_directory(originals(), kUsual);
    const std::string kept = originals() + "/" + hash;
    write_file(kept + ".new", original.bytes, kSecret, path);
    flush_to_disk(kept + ".new");
    replace_file(kept + ".new", kept);
  }
  save(next);
}

void Store::reopen(const std::string& version) {
  Contents next = contents_;
  const auto found = next.installations.find(version);
  if (found != next.installations.end() && found->second.is_finished) {
    found->second.is_finished = false;
    save(next);
  }
}

void Store::note(const InstallationRecord& record, const std::vector<Result>& results) {
  Contents next = contents_;
  next.installations[record.version] = record;
  for (const Result& result : results) {
    const std::string path = relative(result.path);
    const std::string hash = sha256(result.bytes);
    Entry& entry = next.files.at(path);
    noted_[path] = hash;
    entry.results.insert(hash);
    entry.placeholders.insert(result.placeholders.begin(), result.placeholders.end());
    entry.installations.insert(record.version);
  }
  save(next);
}

void Store::settle(const InstallationRecord& record) {
  if (noted_.empty()) {
    return;
  }
  Contents next = contents_;
  next.installations[record.version] = record;
  for (const auto& [path, hash] : noted_) {
    next.files.at(path).results = {hash};
  }
  save(next);
}

void Store::forget(const std::string& version, const std::set<std::string>& all_but) {
  Contents next = contents_;
  next.installations.erase(version);
  for (const std::string& path : known_files(version)) {
    if (all_but.count(path) == 0) {
      Entry& entry = next.files.at(relative(path));
      entry.installations.erase(version);
      if (entry.installations.empty()) {
        next.files.erase(relative(path));
      }
    }
  }
  if (next.files.empty()) {
    // A rename, because a full disk would forbid to write an empty manifest.
    replace_file(manifest(), old_manifest());
    contents_ = {};
  } else {
    save(next);
  }
}

// The manifest goes last, so that there are never originals without one.
void Store::clean() const {
  fs::remove_all(staging_directory());
  fs::remove(manifest() + ".new");
  fs::remove(directory() + "/lock");  // an older program's
  const std::string last = is_taken(old_manifest()) ? old_manifest() : manifest();
  if (!is_certain_ || !is_taken(last)) {
    return;
  }
  std::set<std::string> needed;
  for (const auto& [path, entry] : contents_.files) {
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
    if (!is_taken(originals())) {
      flush_to_disk(directory());
      remove_file(last);
    }
  }
  flush_to_disk(directory());
}

StagingDirectory::StagingDirectory(const Store& store) : store_(store) {
  store_.clean();
  make_directory(name(), kOwnerOnly);
}

StagingDirectory::~StagingDirectory() {
  try {
    store_.clean();
  } catch (const std::exception& failure) {
    add_to_log("ERROR: cannot clean up " + store_.directory() + ": " + failure.what());
  }
}

}  // namespace ndk_integrate
