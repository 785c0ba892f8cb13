// The command `ndk-integrate verify`, and the same proof as a part of an installation.
#ifndef CONSOLE_HOST_COMMANDS_VERIFY_H
#define CONSOLE_HOST_COMMANDS_VERIFY_H

#include <optional>
#include <string>
#include <vector>

#include "console_host/commands/exit_code.h"
#include "console_host/commands/output.h"
#include "console_host/ndk/plugin.h"
#include "console_host/ndk/toolchains.h"
#include "console_host/package/compiler.h"
#include "console_host/services/session.h"

namespace ndk_integrate {

struct VerifyOptions {
  bool is_ndk_given = false;  // that NDK_PATH is what the user asks for, whatever was recorded
  bool no_build = false;      // only look whether everything is in its place
  std::string keep;           // an absolute directory for what is built; "" for a temporary one
  bool json = false;
};

// What was found out about a compiler's toolchains in an NDK.
struct Verification {
  std::string ndk;
  std::optional<std::string> release;
  std::vector<ToolchainProof> proofs;

  std::size_t failures() const;
};

// Throws UsageError when nothing can be built in `options.keep`.
void require_keep_directory(const VerifyOptions& options);

// Proves that the toolchains of `compiler` work in the NDK in `ndk`. Tells on standard error what
// it builds. Throws std::runtime_error when that cannot be found out.
Verification verify_toolchains(const Plugin& plugin, const Compiler& compiler,
                               const std::string& ndk, const VerifyOptions& options);

// Tells one line a toolchain, and what a build that failed printed.
void tell(const Verification& verification);
Json to_json(const Verification& verification);

// Which of the toolchains do not work: "1 of 2 toolchains does not work in NDK"; or that all do.
std::string summary_of(const Verification& verification);

// Tells whether an NDK can build with the compiler: with each of its toolchains, and with nothing
// else. Returns kDone when it can, kNothingToDo where nothing is installed, else kNotDone. Throws
// UsageError when the compiler's component is not to be used.
ExitCode verify(const Plugin& plugin, const Installation& installation,
                const VerifyOptions& options);

}  // namespace ndk_integrate

#endif
