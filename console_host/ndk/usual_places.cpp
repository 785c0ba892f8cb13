#include "console_host/ndk/usual_places.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

#include <cstdlib>
#include <filesystem>
#include <set>
#include <tuple>
#include <utility>

#include "console_host/base/paths.h"
#include "console_host/base/text.h"
#include "console_host/ndk/judgement.h"

namespace ndk_integrate {

namespace {

std::string environment(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? "" : value;
}

// The directories in `parent` whose names begin with `prefix`, by name.
std::vector<std::string> subdirectories(const std::string& parent, const std::string& prefix) {
  namespace fs = std::filesystem;
  std::vector<std::string> found;
  std::error_code failure;
  for (fs::directory_iterator entry(parent, failure), end; entry != end; entry.increment(failure)) {
    std::error_code no_directory;
    if (entry->path().filename().string().compare(0, prefix.size(), prefix) == 0 &&
        entry->is_directory(no_directory)) {
      found.push_back(entry->path().string());
    }
  }
  if (failure == std::errc::permission_denied) {
    found.push_back(parent);  // to be judged itself, so that a person learns of it
  }
  std::sort(found.begin(), found.end());
  return found;
}

// A revision in a form that sorts as its numbers do, of any length; a beta comes before its release.
// One number: how many digits, the digits, and whether nothing follows them.
using Revision = std::vector<std::tuple<std::size_t, std::string, bool>>;

Revision revision_of(const std::string& dir) {
  Revision revision;
  for (const std::string& piece : split(read_revision(dir), ".")) {
    const std::size_t end = std::min(piece.find_first_not_of("0123456789"), piece.size());
    const std::size_t begin = std::min(piece.find_first_not_of('0'), end);
    const std::string digits = piece.substr(begin, end - begin);
    revision.emplace_back(digits.size(), digits, end == piece.size());
  }
  return revision;
}

// `dirs` with the newest revision first; those without one come last, by name.
std::vector<std::string> newest_first(const std::vector<std::string>& dirs) {
  std::vector<std::pair<Revision, std::string>> revisions;
  for (const std::string& dir : dirs) {
    revisions.emplace_back(revision_of(dir), dir);
  }
  std::stable_sort(revisions.begin(), revisions.end(),
                   [](const auto& a, const auto& b) { return a.first > b.first; });
  std::vector<std::string> sorted;
  for (const auto& [revision, dir] : revisions) {
    sorted.push_back(dir);
  }
  return sorted;
}

// Collects directories in order; those that do not exist are left out, and so is one that was reached
// before. One that may not be looked at stays in, to be judged.
class Directories {
 public:
  void add(const std::string& dir) {
    if (dir.empty()) {
      return;
    }
    struct stat status {};
    if (stat(dir.c_str(), &status) != 0) {
      if (errno != ENOENT && errno != ENOTDIR) {
        dirs_.push_back(dir);
      }
    } else if (S_ISDIR(status.st_mode) && known_.emplace(status.st_dev, status.st_ino).second) {
      dirs_.push_back(dir);
    }
  }

  void add(const std::vector<std::string>& dirs) {
    for (const std::string& dir : dirs) {
      add(dir);
    }
  }

  const std::vector<std::string>& all() const { return dirs_; }

 private:
  std::vector<std::string> dirs_;
  std::set<std::pair<dev_t, ino_t>> known_;
};

// The directories in which an SDK is expected; some may not exist.
std::vector<std::string> sdk_directories(const std::string& home) {
  std::vector<std::string> sdks;
  for (const char* name : {"ANDROID_HOME", "ANDROID_SDK_ROOT"}) {
    if (!environment(name).empty()) {
      sdks.push_back(normal_path(environment(name)));
    }
  }
  if (!home.empty()) {
    sdks.push_back(home + "/Android/Sdk");
  }
  for (const char* dir :
       {"/usr/lib/android-sdk", "/usr/local/lib/android/sdk", "/opt/android-sdk"}) {
    sdks.emplace_back(dir);
  }
  return sdks;
}

}  // namespace

std::vector<std::string> usual_places() {
  const std::string home = environment("HOME");
  const std::vector<std::string> sdks = sdk_directories(home);

  Directories found;
  for (const char* name :
       {"ANDROID_NDK_HOME", "ANDROID_NDK_ROOT", "ANDROID_NDK", "ANDROID_NDK_LATEST_HOME"}) {
    found.add(environment(name));
  }
  for (const std::string& sdk : sdks) {
    found.add(newest_first(subdirectories(sdk + "/ndk", "")));
  }
  for (const std::string& sdk : sdks) {
    found.add(sdk + "/ndk-bundle");
  }
  found.add("/usr/lib/android-ndk");
  found.add("/opt/android-ndk");
  found.add(newest_first(subdirectories("/opt", "android-ndk-")));
  if (!home.empty()) {
    found.add(newest_first(subdirectories(home, "android-ndk-")));
  }
  return found.all();
}

}  // namespace ndk_integrate
