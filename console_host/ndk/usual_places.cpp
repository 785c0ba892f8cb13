#include "console_host/ndk/usual_places.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <optional>
#include <set>
#include <utility>

#include "console_host/base/files.h"
#include "console_host/base/paths.h"
#include "console_host/ndk/search.h"

namespace ndk_integrate {

namespace {

constexpr const char* kLatest = "ANDROID_NDK_LATEST_HOME";  // differs from the others on purpose

constexpr std::array<const char*, 7> kNdkVariables = {
    "ANDROID_NDK_HOME", "ANDROID_NDK_ROOT", "ANDROID_NDK", "ANDROID_NDK_PATH", kLatest,
    "NDK_HOME",         "NDK_ROOT"};

constexpr std::array<const char*, 2> kSdkVariables = {"ANDROID_HOME", "ANDROID_SDK_ROOT"};

std::string environment(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? "" : value;
}

using Identity = std::pair<dev_t, ino_t>;

std::optional<Identity> identity_of(const std::string& dir) {
  struct stat status {};
  return stat(dir.c_str(), &status) == 0 ? std::optional(Identity(status.st_dev, status.st_ino))
                                         : std::nullopt;
}

bool is_relative(const std::string& path) { return path[0] != '/'; }

// The note on what `name` says when that is relative to wherever a tool happens to run.
std::vector<Note> notes_on(const std::string& name, const std::string& value) {
  if (!is_relative(value)) {
    return {};
  }
  const std::string absolute = absolute_path(working_directory(), value);
  return {{Reason::kRelativePath,
           name + " holds a relative path, which each tool takes from its own working directory" +
               (is_directory(absolute) ? "; did you mean " + absolute + "?" : "")}};
}

// An SDK, and where it comes from.
struct Sdk {
  std::string dir;
  std::string source;
  bool is_named = false;  // by a variable or a project
  std::vector<Note> notes = {};
};

// Collects candidates in order. One that was reached before is left out, and so is one that does
// not exist and that nobody names.
class Candidates {
 public:
  void add(const Candidate& candidate) {
    struct stat status {};
    const bool exists = stat(candidate.dir.c_str(), &status) == 0;
    const bool may_exist = exists || (errno != ENOENT && errno != ENOTDIR);
    const bool is_wanted = candidate.is_named || (exists ? S_ISDIR(status.st_mode) : may_exist);
    const bool is_new = exists ? known_.emplace(status.st_dev, status.st_ino).second
                               : known_names_.insert(candidate.dir).second;
    if (is_wanted && is_new) {
      all_.push_back(candidate);
    }
  }

  void add(const std::string& dir, const std::string& source) { add(candidate_of(dir, source)); }

  void add_named(const std::string& dir, const std::string& source, std::vector<Note> notes = {}) {
    Candidate candidate = candidate_of(dir, source);
    candidate.is_named = true;
    candidate.notes = std::move(notes);
    add(candidate);
  }

  std::vector<Candidate> take() { return std::move(all_); }

 private:
  std::vector<Candidate> all_;
  std::set<Identity> known_;
  std::set<std::string> known_names_;
};

void add_pins(const Project& project, Candidates& found) {
  for (const auto& pin : {project.ndk_path, project.ndk_dir}) {
    if (pin) {
      found.add_named(pin->value, pin->source);
    }
  }
}

void add_variables(Candidates& found) {
  for (const char* name : kNdkVariables) {
    const std::string value = environment(name);
    if (!value.empty()) {
      found.add_named(value, name, notes_on(name, value));
    }
  }
}

// The directories in which an SDK is expected; some may not exist.
std::vector<Sdk> expected_sdks(const Project& project, const std::string& home) {
  std::vector<Sdk> sdks;
  if (project.sdk_dir) {
    sdks.push_back({project.sdk_dir->value, "the SDK of " + project.sdk_dir->source, true});
  }
  for (const char* name : kSdkVariables) {
    const std::string value = environment(name);
    if (!value.empty()) {
      sdks.push_back(
          {normal_path(value), std::string("the SDK in ") + name, true, notes_on(name, value)});
    }
  }
  if (!home.empty()) {
    sdks.push_back({home + "/Android/Sdk", "the SDK in ~/Android/Sdk"});
  }
  for (const char* dir :
       {"/usr/lib/android-sdk", "/usr/local/lib/android/sdk", "/opt/android-sdk"}) {
    sdks.push_back({dir, std::string("the SDK in ") + dir});
  }
  return sdks;
}

void add_of_sdk(const Sdk& sdk, const std::vector<std::string>& dirs, Candidates& found) {
  for (const std::string& dir : dirs) {
    Candidate candidate = candidate_of(dir, sdk.source);
    candidate.notes = sdk.notes;
    found.add(candidate);
  }
}

bool holds_ndks(const Sdk& sdk) {
  return is_directory(sdk.dir + "/ndk-bundle") || !subdirectories(sdk.dir + "/ndk", "").empty();
}

// A directory that somebody names as an SDK and that is not one is told as a candidate itself.
void add_sdks(const std::vector<Sdk>& sdks, Candidates& found, std::vector<std::string>& warnings) {
  for (const Sdk& sdk : sdks) {
    add_of_sdk(sdk, newest_first(subdirectories(sdk.dir + "/ndk", "")), found);
  }
  for (const Sdk& sdk : sdks) {
    add_of_sdk(sdk, {sdk.dir + "/ndk-bundle"}, found);
  }
  for (const Sdk& sdk : sdks) {
    if (!sdk.is_named || holds_ndks(sdk)) {
      continue;
    }
    if (is_directory(sdk.dir) && !looks_like_ndk(sdk.dir) && newest_ndk_in(sdk.dir).empty()) {
      warnings.push_back(sdk.source + ", " + sdk.dir + ", holds no NDK");
    } else {
      found.add_named(sdk.dir, sdk.source, sdk.notes);
    }
  }
}

void add_places(const std::string& home, Candidates& found) {
  for (const char* dir : {"/usr/lib/android-ndk", "/opt/android-ndk"}) {
    found.add(dir, dir);
  }
  for (const std::string& dir : newest_first(subdirectories("/opt", "android-ndk-"))) {
    found.add(dir, "/opt/android-ndk-*");
  }
  if (!home.empty()) {
    for (const std::string& dir : newest_first(subdirectories(home, "android-ndk-"))) {
      found.add(dir, "~/android-ndk-*");
    }
  }
}

// A warning where two variables name different NDKs.
void compare_variables(std::vector<std::string>& warnings) {
  std::optional<Identity> first;
  std::string told;
  bool differ = false;
  for (const char* name : kNdkVariables) {
    const std::string value = environment(name);
    if (name == kLatest || value.empty() || !looks_like_ndk(value)) {
      continue;
    }
    const auto identity = identity_of(value);
    differ = differ || (first && identity != first);
    first = first ? first : identity;
    told += (told.empty() ? "" : ", ") + std::string(name) + " is " + value;
  }
  if (differ) {
    warnings.push_back("the environment names different NDKs: " + told);
  }
}

// The NDK near `dir` that was probably meant by it: the one that it lies in, or one beside it; ""
// when there is none.
std::string ndk_near(const std::string& dir) {
  constexpr int kFarthest = 3;  // directories up
  std::string at = dir;
  for (int up = 0; up < kFarthest && at.size() > 1; ++up) {
    at = directory_of(at);
    if (looks_like_ndk(at)) {
      return at;
    }
  }
  at = dir;
  for (int up = 0; up < kFarthest && at.size() > 1; ++up) {
    std::string ndk = newest_ndk_in(at);
    if (!ndk.empty()) {
      return ndk;
    }
    at = directory_of(at);
  }
  return "";
}

std::string meant_by(const Candidate& candidate, const std::vector<Judgement>& others) {
  const std::string dir = normal_path(candidate.dir);
  const std::string home = environment("HOME");
  if (candidate.path.compare(0, 2, "~/") == 0 && looks_like_ndk(home + candidate.path.substr(1))) {
    return home + candidate.path.substr(1);
  }
  std::string near = ndk_near(dir);
  if (!near.empty()) {
    return near;
  }
  const auto good = std::find_if(others.begin(), others.end(),
                                 [](const Judgement& judgement) { return judgement.ok(); });
  return good == others.end() ? "" : good->path;
}

}  // namespace

Places usual_places(const Project& project) {
  const std::string home = environment("HOME");
  Places places;
  Candidates found;
  add_pins(project, found);
  add_variables(found);
  add_sdks(expected_sdks(project, home), found, places.warnings);
  add_places(home, found);
  compare_variables(places.warnings);
  places.candidates = found.take();
  return places;
}

std::string with_hint(const Candidate& candidate, const Judgement& judgement,
                      const std::vector<Judgement>& others) {
  if (!candidate.is_named || judgement.status != Status::kNok ||
      judgement.reason == Reason::kParentOfNdks) {
    return judgement.message;
  }
  std::string message = judgement.message;
  if (is_relative(candidate.path)) {
    message += " (it is relative, so this is " + candidate.dir + ")";
  }
  const std::string meant = meant_by(candidate, others);
  return message + (meant.empty() ? "; set it to the directory of an NDK, or not at all"
                                  : "; did you mean " + meant + "?");
}

}  // namespace ndk_integrate
