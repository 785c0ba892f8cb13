// The proof that an NDK builds with a toolchain: it does build, and the compiler that ran is the
// one that was meant.
#ifndef CONSOLE_HOST_NDK_TOOLCHAIN_BUILD_H
#define CONSOLE_HOST_NDK_TOOLCHAIN_BUILD_H

#include <functional>
#include <string>

#include "console_host/ndk/toolchains.h"

namespace ndk_integrate {

struct BuildRequest {
  std::string ndk;
  std::string compiler;  // the directory that the compiler has to be in
  std::string
      projects;  // an empty directory to build in; what is built, and each build's log, stays
};

// Lets the NDK build a module of one C file and one of one C++ file for every ABI of the placed
// toolchain of `proof`, and enters the result and the time in `proof`. `progress` is told what
// begins. Throws std::runtime_error when a project cannot be written.
void prove_builds(const BuildRequest& request, ToolchainProof& proof,
                  const std::function<void(const std::string&)>& progress);

// True when a command in `output`, what a build in the directory `project` printed, has among its
// words a file below the directory `compiler`, links followed. The first word of a line may be the
// name of a program in PATH.
bool uses_compiler(const std::string& output, const std::string& project,
                   const std::string& compiler);

}  // namespace ndk_integrate

#endif
