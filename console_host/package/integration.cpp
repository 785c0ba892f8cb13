#include "console_host/package/integration.h"

#include <sys/stat.h>

#include <algorithm>
#include <utility>

#include "console_host/base/durable_file.h"
#include "console_host/base/files.h"
#include "console_host/base/paths.h"

namespace ndk_integrate {

namespace {

std::size_t count_line_ends(const std::string& bytes) {
  return static_cast<std::size_t>(std::count(bytes.begin(), bytes.end(), '\n'));
}

// The lines of `bytes`; a last one without a line end counts.
std::size_t count_lines(const std::string& bytes) {
  return count_line_ends(bytes) + (bytes.empty() || bytes.back() == '\n' ? 0 : 1);
}

}  // namespace

Integration::Integration(Mode mode, Store& store, std::string staging, const Lock* lock)
    : mode_(mode), store_(store), staging_(std::move(staging)), lock_(lock) {}

PatchedFile& Integration::file(const std::string& path) {
  const auto found = std::find_if(files_.begin(), files_.end(),
                                  [&](const PatchedFile& known) { return known.path == path; });
  if (found != files_.end()) {
    return *found;
  }
  files_.push_back({path, 0, PatchedFile::Result::kPatched, ""});
  return files_.back();
}

bool Integration::is_template(const std::string& path) const {
  return store_.covers(path) && is_ordinary_file(path);
}

std::string Integration::path_asked(const std::string& path) {
  path_ = path;
  placeholders_ = 0;
  inserted_line_ends_ = 0;
  placeholder_texts_.clear();
  if (mode_ == Mode::kScout) {
    return hide(path);
  }
  return is_template(path) ? stage(path) : path;
}

// A name that stands for `path` and that nothing can be opened or made under. The plug-in builds
// further names from it, which come here again.
std::string Integration::hide(const std::string& path) {
  const std::string nowhere = "/dev/null";
  path_ = path.compare(0, nowhere.size(), nowhere) == 0 ? path.substr(nowhere.size()) : path;
  return nowhere + path_;
}

std::string Integration::stage(const std::string& path) {
  const auto known = std::find_if(copies_.begin(), copies_.end(),
                                  [&](const StagedCopy& copy) { return copy.path == path; });
  if (known != copies_.end()) {
    return known->staged;
  }
  const bool is_committed =
      std::any_of(committed_.begin(), committed_.end(),
                  [&](const Store::Result& result) { return result.path == path; });
  file(path).result = PatchedFile::Result::kFailed;  // until it is staged
  StagedCopy copy;
  copy.path = path;
  copy.before = read_whole_file(path);
  std::string start = copy.before;
  if (!is_committed) {
    store_.refuse_edited(path);
    const Store::Original original = store_.original(path);
    start = original.bytes;
    if (mode_ == Mode::kCommit) {
      store_.keep(path, original);
    }
  }
  copy.line_ends = count_lines(start);
  copy.staged = staging_ + "/" + std::to_string(copies_.size() + committed_.size());
  constexpr mode_t kOwnerOnly = 0600;
  write_file(copy.staged, start, kOwnerOnly, path);
  take_over_mode_and_owner(copy.staged, path);
  file(path).staged = copy.staged;
  file(path).result = PatchedFile::Result::kPatched;
  copies_.push_back(std::move(copy));
  return copies_.back().staged;
}

Integration::StagedCopy* Integration::staged_copy(const std::string& staged) {
  const auto found = std::find_if(copies_.begin(), copies_.end(),
                                  [&](const StagedCopy& copy) { return copy.staged == staged; });
  return found == copies_.end() ? nullptr : &*found;
}

void Integration::replaced(const std::string& /*line*/, const std::string& from,
                           const std::string& to, std::size_t count) {
  placeholders_ += count;
  inserted_line_ends_ += count * count_line_ends(to);
  placeholder_texts_.insert(
      from);  // also where it does not occur: it may in the package's next version
}

void Integration::moved(const std::string& to, bool done) {
  StagedCopy* copy = staged_copy(to);
  PatchedFile& patched = file(copy == nullptr ? to : copy->path);
  if (!done) {
    patched.result = PatchedFile::Result::kFailed;
  } else {
    patched.placeholders += placeholders_;
  }
  if (copy != nullptr) {
    copy->is_patched = true;
    copy->is_failed = copy->is_failed || !done;
    copy->line_ends += 1 + inserted_line_ends_;  // each pass adds one line
    copy->placeholders.insert(placeholder_texts_.begin(), placeholder_texts_.end());
  }
}

void Integration::open_failed() {
  const auto copy = std::find_if(copies_.begin(), copies_.end(),
                                 [&](const StagedCopy& one) { return one.path == path_; });
  if (copy != copies_.end()) {
    copy->is_patched = copy->is_failed = true;
  }
  file(path_).result =
      !is_ordinary_file(path_) ? PatchedFile::Result::kMissing : PatchedFile::Result::kFailed;
}

bool Integration::may_run(const std::string& command) {
  command_ = command;
  if (mode_ != Mode::kCommit) {
    return false;
  }
  commit();  // the script uses the toolchain definitions
  return true;
}

void Integration::started(pid_t process) {
  if (lock_ != nullptr) {
    lock_->add_holder(process);
  }
}

void Integration::ran(const std::string& command, const ProcessResult& result) {
  script_ = {command, result.exit_status, result.output};
}

// The plug-in does not look at write errors, so a full disk leaves it a copy that is cut short.
// Each pass adds exactly one line end, which tells.
bool Integration::is_whole(const StagedCopy& copy, const std::string& bytes) {
  return !copy.is_failed && count_line_ends(bytes) == copy.line_ends && !bytes.empty() &&
         bytes.back() == '\n';
}

std::vector<Store::Result> Integration::whole_results() const {
  std::vector<Store::Result> results;
  for (const StagedCopy& copy : copies_) {
    std::string bytes = read_whole_file(copy.staged);
    if (!is_whole(copy, bytes)) {
      throw IncompleteCopy(copy.path);
    }
    if (read_whole_file(copy.path) != copy.before) {
      throw std::runtime_error(copy.path +
                               " was changed by someone else just now; it is left as it is");
    }
    results.push_back({copy.path, std::move(bytes), copy.placeholders});
  }
  return results;
}

void Integration::commit() {
  copies_.erase(std::remove_if(copies_.begin(), copies_.end(),
                               [](const StagedCopy& copy) { return !copy.is_patched; }),
                copies_.end());
  std::vector<Store::Result> results = whole_results();
  if (mode_ == Mode::kDryRun || results.empty()) {
    return;
  }
  store_.note(results);
  for (Store::Result& result : results) {
    const StagedCopy& copy = copies_.front();
    if (result.bytes != copy.before) {
      flush_to_disk(copy.staged);
      rename_file(copy.staged, copy.path);
      changed_ = true;
      flush_to_disk(directory_of(copy.path));
    }
    committed_.push_back(std::move(result));
    copies_.erase(copies_.begin());
  }
}

void Integration::abandon() {
  for (const StagedCopy& copy : copies_) {
    file(copy.path).result = PatchedFile::Result::kFailed;
  }
}

void Integration::finish() {
  commit();
  if (mode_ == Mode::kCommit) {
    store_.settle(committed_);
  }
}

}  // namespace ndk_integrate
