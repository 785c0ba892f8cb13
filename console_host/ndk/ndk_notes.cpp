#include "console_host/ndk/ndk_notes.h"

#include <fcntl.h>
#include <unistd.h>

#include "console_host/base/files.h"

namespace ndk_integrate {

namespace {

constexpr const char* kToolchains = "toolchains";                 // up to r10e
constexpr const char* kCoreToolchains = "build/core/toolchains";  // from r11 on

void note_launcher(const std::string& dir, std::vector<Note>& notes) {
  const std::string launcher = dir + "/ndk-build";
  if (faccessat(AT_FDCWD, launcher.c_str(), X_OK, AT_EACCESS) != 0 && is_ordinary_file(launcher)) {
    notes.push_back({Reason::kLauncherNotExecutable,
                     "ndk-build is not executable: make it so with chmod +x " + launcher});
  }
}

void note_toolchains_not_writable(const std::string& dir, std::vector<Note>& notes) {
  for (const char* name : {kToolchains, kCoreToolchains}) {
    const std::string toolchains = dir + "/" + name;
    if (why_not_writable(toolchains) != 0 && is_directory(toolchains)) {
      notes.push_back({Reason::kToolchainsNotWritable,
                       "you may write to the NDK, but not to its " + std::string(name) +
                           ", where a toolchain definition has to be put"});
    }
  }
}

// ndk-build looks at one of the two directories only.
void note_half_installed_toolchain(const std::string& dir, std::vector<Note>& notes) {
  const bool is_new = is_directory(dir + "/" + kCoreToolchains);
  const std::string toolchains = dir + "/" + (is_new ? kCoreToolchains : kToolchains);
  for (const std::string& one : subdirectories(toolchains, "")) {
    if (is_ordinary_file(one + "/config.mk") && !is_ordinary_file(one + "/setup.mk")) {
      notes.push_back({Reason::kHalfInstalledToolchain,
                       "the toolchain in " + one +
                           " has config.mk but no setup.mk: every build with this NDK fails until "
                           "it is removed or installed again"});
    }
  }
}

}  // namespace

void add_notes(const std::string& dir, const NdkFacts& facts, bool read_only,
               std::vector<Note>& notes) {
  if (facts.prerelease) {
    notes.push_back({Reason::kBeta, "a beta, not a release"});
  }
  if (dir.find_first_of(" \t\n") != std::string::npos) {
    notes.push_back(
        {Reason::kBlankInPath,
         "its path holds a blank, with which ndk-build does not work: move it, or make a "
         "link with another name"});
  }
  note_launcher(dir, notes);
  if (why_not_writable(dir) == 0) {
    note_toolchains_not_writable(dir, notes);
  } else if (read_only) {
    notes.push_back({Reason::kNotWritable, "you may not write there"});
  }
  note_half_installed_toolchain(dir, notes);
}

}  // namespace ndk_integrate
