#include "console_host/store.h"

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>
#include <utility>

#include "console_host/durable_file.h"
#include "host/host.h"

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

bool holds_one_of(const std::string& bytes, const std::set<std::string>& placeholders) {
  return std::any_of(placeholders.begin(), placeholders.end(),
                     [&](const std::string& one) { return bytes.find(one) != std::string::npos; });
}

}  // namespace

Store::Store(std::string root) : root_(std::move(root)) {
  if (file_exists(manifest(), false) != 0) {
    try {
      load();
    } catch (const std::exception& damage) {
      if (file_exists(manifest(), false) == 0) {
        return;  // an undo has just removed it
      }
      throw std::runtime_error("cannot use " + manifest() + ": " + damage.what() +
                               "; the originals are in " + originals());
    }
  }
}

bool Store::covers(const std::string& path) const {
  return path.compare(0, root_.size() + 1, root_ + "/") == 0;
}

std::string Store::relative(const std::string& path) const { return path.substr(root_.size() + 1); }

void Store::load() {
  const auto json = nlohmann::json::parse(read_whole_file(manifest()));
  if (json.at("schema") != 1) {
    throw std::runtime_error("it was written by a newer ndk-integrate");
  }
  for (const auto& [path, file] : json.at("files").items()) {
    entries_[path] = {file.at("original"), from_octal(file.at("mode")), file.at("results"),
                      file.at("placeholders")};
  }
}

void Store::save() const {
  auto files = nlohmann::json::object();
  for (const auto& [path, entry] : entries_) {
    files[path] = {{"original", entry.original},
                   {"mode", octal(entry.mode)},
                   {"results", entry.results},
                   {"placeholders", entry.placeholders}};
  }
  const nlohmann::ordered_json json{{"schema", 1}, {"files", files}};
  const std::string fresh = manifest() + ".new";
  write_file(fresh, json.dump(1) + "\n", kReadable, manifest());
  replace_file(fresh, manifest());
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
  if (file_exists(path, false) == 0) {
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
                             "copy its original " +
                             kept_as(path) + " over it");
  }
}

Store::Original Store::original(const std::string& path) const {
  const State known_as = state(path);
  if (known_as == State::kUnknown || known_as == State::kReinstalled) {
    return {read_whole_file(path), mode_of(path)};
  }
  return {read_whole_file(kept_as(path)), entries_.at(relative(path)).mode};
}

std::string Store::kept_as(const std::string& path) const {
  return originals() + "/" + entries_.at(relative(path)).original;
}

void Store::keep(const std::string& path, const Original& original) {
  const std::string hash = sha256(original.bytes);
  const auto known = entries_.find(relative(path));
  if (known != entries_.end() && known->second.original == hash) {
    return;
  }
  make_directory(originals());
  const std::string kept = originals() + "/" + hash;
  write_file(kept + ".new", original.bytes, kSecret, path);
  replace_file(kept + ".new", kept);
  entries_[relative(path)] = {hash, original.mode, {}, {}};
  save();
}

void Store::note(const std::vector<Result>& results) {
  for (const Result& result : results) {
    Entry& entry = entries_.at(relative(result.path));
    entry.results.insert(sha256(result.bytes));
    entry.placeholders.insert(result.placeholders.begin(), result.placeholders.end());
  }
  save();
}

void Store::settle(const std::vector<Result>& results) {
  for (const Result& result : results) {
    entries_.at(relative(result.path)).results = {sha256(result.bytes)};
  }
  if (!results.empty()) {
    save();
  }
}

void Store::forget() {
  entries_.clear();
  remove_file(manifest());
}

void Store::clean() const {
  fs::remove_all(staging_directory());
  fs::remove(manifest() + ".new");
  if (!fs::exists(originals())) {
    return;
  }
  std::set<std::string> needed;
  for (const auto& [path, entry] : entries_) {
    needed.insert(entry.original);
  }
  for (const fs::directory_entry& original : fs::directory_iterator(originals())) {
    if (needed.count(original.path().filename().string()) == 0) {
      fs::remove(original.path());
    }
  }
  if (needed.empty()) {
    fs::remove(originals());
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
    print_log("ERROR: cannot clean up %s: %s", store_.directory().c_str(), failure.what());
  }
}
