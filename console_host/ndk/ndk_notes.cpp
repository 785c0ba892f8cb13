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

void note_toolchains_not_writable(const std::string& dir, const std::string& name,
                                  std::vector<Note>& notes) {
  if (why_not_writable(dir + "/" + name) != 0) {
    notes.push_back(
        {Reason::kToolchainsNotWritable, "you may write to the NDK, but not to its " + name +
                                             ", where a toolchain definition has to be put"});
  }
}

void note_half_installed_toolchain(const std::string& toolchains, std::vector<Note>& notes) {
  for (const std::string& one : subdirectories(toolchains, "")) {
    if (is_ordinary_file(one + "/config.mk") && !is_ordinary_file(one + "/setup.mk")) {
      notes.push_back({Reason::kHalfInstalledToolchain,
                       "the toolchain in " + one +
                           " has config.mk but no setup.mk: every build with this NDK fails until "
                           "it is removed or installed again"});
    }
  }
}

// Of the two directories of toolchain definitions, ndk-build looks at the newer one where it is.
void note_toolchains(const std::string& dir, bool is_writable, std::vector<Note>& notes) {
  std::string looked_at;
  for (const char* name : {kToolchains, kCoreToolchains}) {
    if (!is_directory(dir + "/" + name)) {
      continue;
    }
    looked_at = dir + "/" + name;
    if (is_writable) {
      note_toolchains_not_writable(dir, name, notes);
    }
  }
  if (!looked_at.empty()) {
    note_half_installed_toolchain(looked_at, notes);
  }
}

}  // namespace

void add_notes(const std::string& dir, const NdkFacts& facts, Status status, bool read_only,
               std::vector<Note>& notes) {
  // Otherwise the plug-in has found that out.
  const bool is_writable =
      status != Status::kNotWritable && (!read_only || why_not_writable(dir) == 0);
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
  if (!is_writable && read_only) {
    notes.push_back({Reason::kNotWritable, "you may not write there"});
  }
  note_toolchains(dir, is_writable, notes);
}

}  // namespace ndk_integrate
