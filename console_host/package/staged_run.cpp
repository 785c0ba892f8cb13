#include "console_host/package/staged_run.h"

#include <algorithm>
#include <utility>

#include "console_host/base/durable_file.h"
#include "console_host/base/files.h"
#include "console_host/base/text.h"

namespace ndk_integrate {

namespace {

// `name` number `count`; as long as any other, so that none is the beginning of another.
std::string numbered(std::size_t count) {
  constexpr std::size_t kDigits = 6;
  const std::string number = std::to_string(count);
  return std::string(kDigits - std::min(kDigits, number.size()), '0') + number;
}

// True when `lines`, which were read one by one, are the whole of `bytes`. What reads them may add
// empty ones at the end.
bool are_all_lines_of(const std::string& lines, const std::string& bytes) {
  const std::string whole = bytes + (bytes.empty() || bytes.back() == '\n' ? "" : "\n");
  return lines.compare(0, whole.size(), whole) == 0 &&
         lines.find_first_not_of('\n', whole.size()) == std::string::npos;
}

}  // namespace

StagedRun::StagedRun(const Compiler& compiler, Store& store, std::string staging)
    : compiler_(compiler), store_(store), staging_(std::move(staging)) {}

TemplateFile& StagedRun::file(const std::string& path) {
  const auto found = std::find_if(files_.begin(), files_.end(),
                                  [&](const TemplateFile& known) { return known.path == path; });
  if (found != files_.end()) {
    return *found;
  }
  files_.emplace_back();
  files_.back().path = path;
  return files_.back();
}

std::string StagedRun::path_asked(const std::string& path) {
  pass_ = {};
  pass_.path = path;
  if (path == compiler_.toolchains || path == compiler_.libraries || path == compiler_.ndk) {
    return path;
  }
  try {
    if (store_.covers(path) && is_ordinary_file_itself(path)) {
      return stage(path);
    }
  } catch (...) {
    file(path).result = TemplateFile::Result::kFailed;
    refused(path);
  }
  return nowhere() + path;
}

std::string StagedRun::stage(const std::string& path) {
  for (const Copy& copy : copies_) {
    if (copy.path == path && !copy.is_committed) {
      return copy.staged;
    }
  }
  const auto committed = std::find_if(copies_.begin(), copies_.end(),
                                      [&](const Copy& copy) { return copy.path == path; });
  Copy copy;
  copy.path = path;
  copy.before = read_whole_file(path);
  copy.bytes = committed == copies_.end() ? starting_bytes(path) : copy.before;
  copy.staged = staging_ + "/" + numbered(copies_.size());
  constexpr mode_t kOwnerOnly = 0600;
  write_file(copy.staged, copy.bytes, kOwnerOnly, path);
  take_over_mode_and_owner(copy.staged, path);
  TemplateFile& staged = file(path);
  if (!staged.is_staged) {
    staged.before = copy.before;
  }
  staged.is_staged = true;
  staged.after = copy.bytes;
  copies_.push_back(std::move(copy));
  return copies_.back().staged;
}

StagedRun::Copy* StagedRun::copy_at(const std::string& staged) {
  const auto found = std::find_if(copies_.begin(), copies_.end(),
                                  [&](const Copy& copy) { return copy.staged == staged; });
  return found == copies_.end() ? nullptr : &*found;
}

void StagedRun::replaced(const std::string& line, const std::string& from, std::size_t count,
                         const std::string& result) {
  pass_.input += line + "\n";
  pass_.output += result + "\n";
  pass_.placeholders += count;
  // Also where it does not occur: it may in the package's next version.
  pass_.placeholder_texts.insert(from);
}

// The plug-in does not look at errors of reading and writing, so a bad or full disk leaves it a copy
// that is cut short.
bool StagedRun::holds_what_it_must(const Copy& copy) const {
  return are_all_lines_of(pass_.input, copy.bytes) && read_whole_file(copy.staged) == pass_.output;
}

void StagedRun::moved(const std::string& to, bool done) {
  Copy* copy = copy_at(to);
  if (copy == nullptr) {
    file(pass_.path).result = TemplateFile::Result::kFailed;
    return;
  }
  TemplateFile& patched = file(copy->path);
  copy->is_patched = true;
  copy->is_whole = copy->is_whole && done && holds_what_it_must(*copy);
  copy->placeholders.insert(pass_.placeholder_texts.begin(), pass_.placeholder_texts.end());
  if (!copy->is_whole) {
    patched.result = TemplateFile::Result::kFailed;
    return;
  }
  patched.placeholders += pass_.placeholders;
  copy->bytes = patched.after = pass_.output;
}

void StagedRun::open_failed() {
  const auto copy = std::find_if(copies_.begin(), copies_.end(), [&](const Copy& one) {
    return one.path == pass_.path && !one.is_committed;
  });
  if (copy != copies_.end()) {
    copy->is_patched = true;
    copy->is_whole = false;
  }
  file(pass_.path).result =
      is_taken(pass_.path) ? TemplateFile::Result::kFailed : TemplateFile::Result::kMissing;
}

std::string StagedRun::log_line(std::string line) const {
  for (const Copy& copy : copies_) {
    line = replace_all(line, copy.staged, copy.path).text;
  }
  return replace_all(line, nowhere(), "").text;
}

}  // namespace ndk_integrate
