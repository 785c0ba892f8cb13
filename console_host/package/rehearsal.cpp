#include "console_host/package/rehearsal.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <set>
#include <utility>

#include "console_host/base/errors.h"
#include "console_host/base/files.h"
#include "console_host/base/paths.h"

namespace ndk_integrate {

namespace {

bool is_on_another_file_system(const std::string& path, const std::string& root) {
  struct stat file {};
  struct stat base {};
  return stat(path.c_str(), &file) == 0 && stat(root.c_str(), &base) == 0 &&
         file.st_dev != base.st_dev;
}

// Why a copy could not take the place of the file `path`, "" when it could.
std::string why_not_replaceable(const std::string& path, const std::string& root) {
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0) {
    return errno == ENOENT || errno == ENOTDIR
               ? "the template " + path +
                     " is missing: is the compiler package installed there whole?"
               : "cannot look at the template " + path + ": " + system_error_text(errno);
  }
  if (S_ISLNK(status.st_mode)) {
    return "the template " + path +
           " is a link, which filling it in would replace or write through; put an ordinary file "
           "there";
  }
  if (!S_ISREG(status.st_mode)) {
    return "the template " + path + " is not an ordinary file";
  }
  if (is_on_another_file_system(path, root)) {
    return "the template " + path + " is on another file system than " + root;
  }
  return "";
}

// In a sticky directory only the owner of a file, or of the directory, may replace it.
bool is_protected_by_sticky_directory(const std::string& path) {
  struct stat file {};
  struct stat dir {};
  return geteuid() != 0 && lstat(path.c_str(), &file) == 0 &&
         stat(directory_of(path).c_str(), &dir) == 0 && (dir.st_mode & S_ISVTX) != 0 &&
         file.st_uid != geteuid() && dir.st_uid != geteuid();
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

Rehearsal::Rehearsal(const Compiler& compiler, Store& store, std::string staging)
    : StagedRun(compiler, store, std::move(staging)) {}

void Rehearsal::run(const Plugin& plugin, Session& session) {
  const ObservedServices observed(*this);
  plugin.integrate_ndk(session.handle());
}

std::string Rehearsal::starting_bytes(const std::string& path) {
  store().refuse_edited(path);
  return store().original(path).bytes;
}

void Rehearsal::refused(const std::string& path) { refusals_[path] = describe_current_exception(); }

// The plug-in has made the directory of the toolchain definitions the working directory, and runs
// the script from there.
bool Rehearsal::may_run(const std::string& command) {
  set_command(command);
  const std::string script = command.substr(0, command.find(' '));
  if (!is_executable_file(script)) {
    script_problem_ = "the integration script " + script + " is missing or not executable in " +
                      compiler().toolchains;
  }
  return false;
}

std::string Rehearsal::problem_of(const TemplateFile& file) const {
  if (!is_below(file.path, compiler().root)) {
    return "the template " + file.path + " is not below the compiler's directory " +
           compiler().root;
  }
  if (const std::string why = why_not_replaceable(file.path, compiler().root); !why.empty()) {
    return why;
  }
  if (const auto refusal = refusals_.find(file.path); refusal != refusals_.end()) {
    return refusal->second;
  }
  if (file.result != TemplateFile::Result::kPatched) {
    return "the template " + file.path + " could not be filled in; -v shows more";
  }
  if (is_protected_by_sticky_directory(file.path)) {
    return "you may not replace the template " + file.path +
           ": it is somebody else's, in a directory in which only owners may";
  }
  return "";
}

std::vector<std::string> Rehearsal::problems() const {
  std::vector<std::string> problems;
  std::set<std::string> dirs;
  for (const TemplateFile& file : files()) {
    if (const std::string problem = problem_of(file); !problem.empty()) {
      problems.push_back(problem);
    }
    dirs.insert(directory_of(file.path));
  }
  for (const std::string& dir : dirs) {
    if (is_directory(dir) && why_not_writable(dir) != 0) {
      problems.push_back("you may not write in " + dir);
    }
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
  return warnings;
}

bool Rehearsal::would_change() const {
  return std::any_of(files().begin(), files().end(),
                     [](const TemplateFile& file) { return file.before != file.after; });
}

}  // namespace ndk_integrate
