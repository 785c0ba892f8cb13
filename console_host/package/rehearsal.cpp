#include "console_host/package/rehearsal.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <set>
#include <utility>

#include "console_host/base/errors.h"
#include "console_host/base/files.h"
#include "console_host/package/quoting.h"

namespace ndk_integrate {

namespace {

// In a sticky directory only the owner of a file, or of the directory, may replace it.
bool is_protected_by_sticky_directory(const Place& place) {
  const struct stat directory = place.directory.status();
  const std::optional<struct stat> file = place.directory.status_of(place.entry);
  return geteuid() != 0 && file && (directory.st_mode & S_ISVTX) != 0 &&
         file->st_uid != geteuid() && directory.st_uid != geteuid();
}

// The placeholders that a compiler package may use. The plug-in fills in each only where it expects
// it.
constexpr std::array<const char*, 2> kPlaceholderBeginnings{"{INSTALL_", "<NDK_DIR>"};

// The first placeholder that is left in `bytes`, "" when none is.
std::string left_placeholder(const std::string& bytes) {
  for (const char* beginning : kPlaceholderBeginnings) {
    const std::size_t begin = bytes.find(beginning);
    if (begin != std::string::npos) {
      const std::size_t end = bytes.find_first_of("}>\n", begin);
      const bool is_closed = end != std::string::npos && bytes[end] != '\n';
      return bytes.substr(begin, is_closed ? end + 1 - begin : std::string(beginning).size());
    }
  }
  return "";
}

}  // namespace

Rehearsal::Rehearsal(const Compiler& compiler, Store& store, const Directory& staging)
    : StagedRun(compiler, store, staging) {}

void Rehearsal::run(const Plugin& plugin, Session& session) {
  const ObservedServices observed(*this);
  plugin.integrate_ndk(session.handle());
}

Store::Original Rehearsal::original_of(const std::string& path, const Found& found) {
  if (const std::string edited = store().why_edited(path, found); !edited.empty()) {
    throw std::runtime_error(edited);
  }
  return store().original(path, found);
}

void Rehearsal::refused(const std::string& path) { refusals_[path] = describe_current_exception(); }

// The plug-in has made the directory of the toolchain definitions the working directory, and runs
// the script from there.
bool Rehearsal::may_run(const std::string& command) {
  set_command(command);
  script_problem_ = why_not_runnable(command);
  return false;
}

std::string Rehearsal::problem_of(const TemplateFile& file) const {
  if (const auto refusal = refusals_.find(file.path); refusal != refusals_.end()) {
    return refusal->second;
  }
  if (std::string why = why_not_a_template(file.path); !why.empty()) {
    return why;
  }
  if (file.result != TemplateFile::Result::kPatched) {
    return "the template " + file.path + " could not be filled in; -v shows more";
  }
  const std::optional<Place> place = store().tree().find(file.path);
  if (place && is_protected_by_sticky_directory(*place)) {
    return "you may not replace the template " + file.path +
           ": it is somebody else's, in a directory in which only owners may";
  }
  return "";
}

// The directory in which no copy can take the place of `path`, "" when one can; what else may be
// wrong there is not told.
std::string Rehearsal::unwritable_directory_of(const std::string& path) const {
  try {
    const std::optional<Place> place =
        store().tree().covers(path) ? store().tree().find(path) : std::nullopt;
    return place && place->directory.why_not_writable() != 0 ? place->directory.name() : "";
  } catch (const std::runtime_error&) {
    return "";
  }
}

std::vector<std::string> Rehearsal::problems() const {
  std::vector<std::string> problems;
  std::set<std::string> unwritable;
  for (const TemplateFile& file : files()) {
    if (const std::string problem = problem_of(file); !problem.empty()) {
      problems.push_back(problem);
    }
    if (const std::string dir = unwritable_directory_of(file.path); !dir.empty()) {
      unwritable.insert(dir);
    }
  }
  for (const std::string& dir : unwritable) {
    problems.push_back("you may not write in " + dir);
  }
  if (!script_problem_.empty()) {
    problems.push_back(script_problem_);
  }
  return problems;
}

std::vector<std::string> Rehearsal::warnings() const {
  std::vector<std::string> warnings;
  for (const TemplateFile& file : files()) {
    if (file.result != TemplateFile::Result::kPatched) {
      continue;
    }
    if (file.placeholders == 0) {
      warnings.push_back("no placeholder was found in the template " + file.path +
                         "; nothing is filled in there");
    }
    if (const std::string left = left_placeholder(file.after); !left.empty()) {
      warnings.push_back(file.path + " still holds " + left +
                         " afterwards, which nothing fills in there");
    }
  }
  for (const Copy& copy : copies()) {
    const std::string ndk = command().empty() ? "" : compiler().ndk;  // "" where it is disabled
    if (const std::string surprise =
            quoting_surprise(copy.path, copy.original, kPlaceholderBeginnings.back(), ndk);
        !surprise.empty()) {
      warnings.push_back(surprise);
    }
  }
  return warnings;
}

bool Rehearsal::would_change() const {
  return std::any_of(files().begin(), files().end(),
                     [](const TemplateFile& file) { return file.before != file.after; });
}

}  // namespace ndk_integrate
