// The NDK that a project pins.
#ifndef CONSOLE_HOST_NDK_PROJECT_H
#define CONSOLE_HOST_NDK_PROJECT_H

#include <optional>
#include <string>
#include <vector>

namespace ndk_integrate {

struct Pin {
  std::string value;   // as the file gives it; a directory is absolute
  std::string source;  // "ndkVersion in /project/build.gradle"
};

struct Project {
  std::optional<Pin> ndk_version;
  std::optional<Pin> ndk_path;
  std::optional<Pin> ndk_dir;
  std::optional<Pin> sdk_dir;
  std::vector<std::string> notes;  // files and values that were passed over, and why
};

// Reads local.properties, build.gradle and build.gradle.kts of `dir`, an absolute directory, and of
// those above it up to the one that holds .git; without such a one only of `dir`. What stands
// nearest to `dir` counts. A file that belongs neither to the effective user nor to root, cannot be
// read or is malformed is passed over with a note.
Project read_project(const std::string& dir);

}  // namespace ndk_integrate

#endif
