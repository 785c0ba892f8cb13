#include "console_host/package/staged_run.h"

#include <algorithm>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "console_host/base/text.h"
#include "console_host/package/script_run.h"

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

// The name of `staging` for what opens files by name. Throws std::runtime_error when there is none
// that can be trusted.
std::string reachable_name(const Directory& staging, const CompilerTree& tree) {
  const std::string lasting = staging.lasting_name();
  if (lasting.empty() && !tree.is_safe_by_name()) {
    throw std::runtime_error("there is no /proc/self/fd here, without which the files in " +
                             tree.root() +
                             ", which belongs to somebody else, cannot be worked on safely; mount "
                             "/proc, or run as the owner of that directory");
  }
  return lasting.empty() ? staging.name() : lasting;
}

}  // namespace

StagedRun::StagedRun(const Compiler& compiler, Store& store, const Directory& staging)
    : compiler_(compiler),
      store_(store),
      staging_(staging),
      staging_name_(reachable_name(staging, store.tree())) {}

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
    if (std::string staged = stage(path); !staged.empty()) {
      return staged;
    }
  } catch (...) {
    file(path).result = TemplateFile::Result::kFailed;
    refused(path);
  }
  return nowhere() + path;
}

std::string StagedRun::why_not_a_template(const std::string& path, const Found& found) const {
  const std::string name = "the template " + path;
  switch (found.kind) {
    case Found::Kind::kMissing:
      return name + " is missing: is the compiler package installed there whole?";
    case Found::Kind::kLink:
      return name +
             " is a link, which filling it in would replace or write through; put an "
             "ordinary file there";
    case Found::Kind::kOther:
      return name + " is not an ordinary file";
    default:
      return store_.tree().why_not_trusted(path, found.file->status());
  }
}

std::string StagedRun::why_not_a_template(const std::string& path) const {
  const CompilerTree& tree = store_.tree();
  if (!tree.covers(path)) {
    return "the template " + path + " is not below the compiler's directory " + tree.root();
  }
  try {
    return why_not_a_template(path, tree.look(path));
  } catch (const std::runtime_error& failure) {
    return failure.what();
  }
}

// The name of the copy of `path`, "" when there is no template to copy.
std::string StagedRun::stage(const std::string& path) {
  for (const Copy& copy : copies_) {
    if (copy.path == path && !copy.is_committed) {
      return name_of(copy.entry);
    }
  }
  const std::optional<Place> place =
      store_.tree().covers(path) ? store_.tree().find(path) : std::nullopt;
  Found found = place ? look_at(place->directory, place->entry) : Found{};
  if (found.kind != Found::Kind::kOrdinary) {
    return "";
  }
  if (const std::string why = why_not_a_template(path, found); !why.empty()) {
    throw std::runtime_error(why);
  }
  const Copy& copy = make_copy(path, *place, std::move(found));
  TemplateFile& staged = file(path);
  if (!staged.is_staged) {
    staged.before = copy.before;
  }
  staged.is_staged = true;
  staged.after = copy.bytes;
  return name_of(copy.entry);
}

StagedRun::Copy& StagedRun::make_copy(const std::string& path, const Place& place, Found found) {
  const bool is_committed = std::any_of(copies_.begin(), copies_.end(),
                                        [&](const Copy& copy) { return copy.path == path; });
  const Store::Original original =
      is_committed ? Store::Original{found.bytes} : original_of(path, found);
  const std::string entry = numbered(copies_begun_++);
  const File copy = staging_.make_file(entry, path);
  copy.write(original.bytes, path);
  copies_.push_back({path,
                     place,
                     std::move(*found.file),
                     entry,
                     std::move(found.bytes),
                     original.bytes,
                     original.bytes,
                     {},
                     original.is_secret_of_root});
  return copies_.back();
}

StagedRun::Copy* StagedRun::copy_at(const std::string& staged) {
  const auto found = std::find_if(copies_.begin(), copies_.end(),
                                  [&](const Copy& copy) { return name_of(copy.entry) == staged; });
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

Found StagedRun::look_at_copy(const Copy& copy) const {
  try {
    return look_at(staging_, copy.entry);
  } catch (const std::system_error& failure) {
    throw std::runtime_error("cannot read the copy of " + copy.path + ": " +
                             failure.code().message());
  }
}

// The plug-in does not look at errors of reading and writing, so a bad or full disk leaves it a
// copy that is cut short.
bool StagedRun::holds_what_it_must(const Copy& copy) const {
  return are_all_lines_of(pass_.input, copy.bytes) && look_at_copy(copy).holds(pass_.output);
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

bool StagedRun::is_missing(const std::string& path) const {
  const CompilerTree& tree = store_.tree();
  return !tree.covers(path) || tree.look(path).kind == Found::Kind::kMissing;
}

void StagedRun::open_failed() {
  const auto copy = std::find_if(copies_.begin(), copies_.end(), [&](const Copy& one) {
    return one.path == pass_.path && !one.is_committed;
  });
  if (copy != copies_.end()) {
    copy->is_patched = true;
    copy->is_whole = false;
  }
  if (file(pass_.path).result != TemplateFile::Result::kFailed) {
    file(pass_.path).result =
        is_missing(pass_.path) ? TemplateFile::Result::kMissing : TemplateFile::Result::kFailed;
  }
}

std::string StagedRun::why_not_runnable(const std::string& command) const {
  const std::string script = command.substr(0, command.find(' '));
  const std::string why = ndk_integrate::why_not_runnable("the integration script", script);
  return why.empty() ? "" : why + " in " + compiler_.toolchains;
}

std::string StagedRun::log_line(std::string line) const {
  const auto replace = [&](const std::string& from, const std::string& to) {
    if (line.find(from) != std::string::npos) {  // what a script printed may be long
      line = replace_all(line, from, to).text;
    }
  };
  for (const Copy& copy : copies_) {
    replace(name_of(copy.entry), copy.path);
  }
  replace(nowhere(), "");
  return line;
}

}  // namespace ndk_integrate
