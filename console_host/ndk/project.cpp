#include "console_host/ndk/project.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "console_host/base/errors.h"
#include "console_host/base/files.h"
#include "console_host/base/paths.h"
#include "console_host/ndk/project_files.h"

namespace ndk_integrate {

namespace {

// `dir` and the directories above it up to the one that holds .git; `dir` alone when none does.
std::vector<std::string> directories(const std::string& dir) {
  std::vector<std::string> dirs;
  for (std::string at = dir;; at = directory_of(at)) {
    dirs.push_back(at);
    struct stat status {};
    if (lstat((at + "/.git").c_str(), &status) == 0) {
      return dirs;
    }
    if (at == "/") {
      return {dir};
    }
  }
}

// The content of `file`. Nothing, with a note, when it is to be passed over.
std::optional<std::string> content(const std::string& file, std::vector<std::string>& notes) {
  constexpr std::size_t kMost = 1 << 20;  // bytes; nobody's build script is longer
  const FileDescriptor opened = open_to_read(file);
  struct stat status {};
  if (!opened.is_open() && (errno == ENOENT || errno == ENOTDIR)) {
    return std::nullopt;
  }
  // Somebody else must not choose which NDK we build with.
  if (opened.is_open() && fstat(opened.number(), &status) == 0 && status.st_uid != geteuid() &&
      status.st_uid != 0) {
    notes.push_back(file + " is passed over: it belongs neither to you nor to root");
    return std::nullopt;
  }
  auto text = read_ordinary_file(opened, kMost + 1);
  if (!text) {
    notes.push_back(
        file + " is passed over: " + (errno == 0 ? "it is not a file" : system_error_text(errno)));
  } else if (text->size() > kMost) {
    notes.push_back(file + " is passed over: it is longer than 1 MiB");
    text.reset();
  }
  return text;
}

class Reader {
 public:
  explicit Reader(Project& project) : project_(project) {}

  void read(const std::string& dir) {
    read_file(dir, "local.properties", read_local_properties);
    read_file(dir, "build.gradle", [](const std::string& text) {
      return read_build_gradle(text, GradleLanguage::kGroovy);
    });
    read_file(dir, "build.gradle.kts", [](const std::string& text) {
      return read_build_gradle(text, GradleLanguage::kKotlin);
    });
  }

 private:
  template <typename Parse>
  void read_file(const std::string& dir, const std::string& name, const Parse& parse) {
    const std::string path = (dir == "/" ? "" : dir) + "/" + name;
    const auto text = content(path, project_.notes);
    if (!text) {
      return;
    }
    const ProjectFile file = parse(*text);
    if (!file.malformed.empty()) {
      project_.notes.push_back(path + " is passed over: " + file.malformed);
    }
    for (const std::string& note : file.notes) {
      project_.notes.push_back(path + ": " + note);
    }
    take(file, path, dir, "ndkVersion", project_.ndk_version);
    take(file, path, dir, "ndkPath", project_.ndk_path);
    take(file, path, dir, "ndk.dir", project_.ndk_dir);
    take(file, path, dir, "sdk.dir", project_.sdk_dir);
  }

  // Keeps what a nearer file said.
  static void take(const ProjectFile& file, const std::string& path, const std::string& dir,
                   const std::string& key, std::optional<Pin>& pin) {
    const auto found = file.values.find(key);
    if (pin || found == file.values.end() || found->second.empty()) {
      return;
    }
    const bool is_directory_name = key != "ndkVersion";
    pin = Pin{is_directory_name ? absolute_path(dir, found->second) : found->second,
              key + " in " + path};
  }

  Project& project_;
};

}  // namespace

Project read_project(const std::string& dir) {
  Project project;
  Reader reader(project);
  for (const std::string& one : directories(normal_path(dir))) {
    reader.read(one);
  }
  return project;
}

}  // namespace ndk_integrate
