#include "console_host/search.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <utility>

#include "console_host/judgement.h"
#include "host/host.h"

namespace {

std::string environment(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? "" : value;
}

// The directories in `parent` whose names begin with `prefix`, by name.
std::vector<std::string> subdirectories(const std::string& parent, const std::string& prefix) {
  namespace fs = std::filesystem;
  std::vector<std::string> found;
  std::error_code ignored;  // a directory that cannot be listed has nothing to offer
  for (fs::directory_iterator entry(parent, ignored), end; entry != end; entry.increment(ignored)) {
    std::error_code no_directory;
    if (entry->path().filename().string().compare(0, prefix.size(), prefix) == 0 &&
        entry->is_directory(no_directory)) {
      found.push_back(entry->path().string());
    }
  }
  std::sort(found.begin(), found.end());
  return found;
}

// The numbers of the NDK's revision; none when it has no revision.
std::vector<int> revision_numbers(const std::string& dir) {
  std::vector<int> numbers;
  for (const std::string& piece : splitString(read_revision(dir), ".", false)) {
    numbers.push_back(strtoint(piece));
  }
  return numbers;
}

// `dirs` with the newest revision first; those without one come last, by name.
std::vector<std::string> newest_first(const std::vector<std::string>& dirs) {
  std::vector<std::pair<std::vector<int>, std::string>> revisions;
  for (const std::string& dir : dirs) {
    revisions.emplace_back(revision_numbers(dir), dir);
  }
  std::stable_sort(revisions.begin(), revisions.end(),
                   [](const auto& a, const auto& b) { return a.first > b.first; });
  std::vector<std::string> sorted;
  for (const auto& [numbers, dir] : revisions) {
    sorted.push_back(dir);
  }
  return sorted;
}

// Collects directories in order; those that do not exist are left out, and so is one that was
// reached before.
class Directories {
 public:
  void add(const std::string& dir) {
    struct stat status {};
    if (!dir.empty() && stat(dir.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
        known_.emplace(status.st_dev, status.st_ino).second) {
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
      sdks.push_back(environment(name));
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

std::vector<std::string> default_search() {
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
