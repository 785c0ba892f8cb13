// Taking a compiler's toolchain definitions out of an NDK: the compiler package's ndk_removal.sh
// does it, where the package has one.
#ifndef CONSOLE_HOST_PACKAGE_REMOVAL_H
#define CONSOLE_HOST_PACKAGE_REMOVAL_H

#include <optional>
#include <string>
#include <vector>

#include "console_host/package/compiler.h"
#include "console_host/package/script_run.h"

namespace ndk_integrate {

// What is to be done about an NDK, or was.
struct Removal {
  std::string ndk;
  std::string command;      // of the script; "" where none is to run
  std::string why_left;     // why the NDK is left as it is, as a sentence; "" where it is not
  bool is_warning = false;  // whether that is a surprise
  std::optional<ScriptRun> script;  // its run
  std::vector<std::string> left;    // the directories of definitions that it left there

  bool has_failed() const { return script && script->exit_status != 0; }
};

// How the definitions of `compiler` are taken out of the NDK in `ndk`. Changes nothing. Throws
// std::runtime_error when the script cannot be run as it is.
Removal plan_removal(const Compiler& compiler, const std::string& ndk);

// Runs the script that was planned, if one was, in the directory of the toolchain definitions,
// while `watcher` follows it. Throws Interrupted when this program is to end.
void run_removal(const Compiler& compiler, Removal& removal, ScriptWatcher& watcher);

// What is told of a script that failed, and what to do.
std::string why_removal_failed(const Removal& removal);

}  // namespace ndk_integrate

#endif
