#include "console_host/package/removal.h"

#include <stdexcept>
#include <vector>

#include "console_host/base/files.h"
#include "console_host/base/interruption.h"
#include "console_host/base/paths.h"
#include "console_host/base/process.h"
#include "console_host/base/text.h"
#include "console_host/ndk/toolchains.h"

namespace ndk_integrate {

namespace {

constexpr const char* kScript = "ndk_removal.sh";

// The directories of the compiler's definitions that are in the NDK.
std::vector<std::string> definitions_in(const Compiler& compiler, const std::string& ndk) {
  const std::vector<Toolchain> toolchains = toolchains_in(compiler.toolchains, compiler.version);
  const std::string place = toolchain_place(ndk, toolchains);
  std::vector<std::string> dirs;
  for (const Toolchain& toolchain : toolchains) {
    if (!place.empty() && is_directory(place + "/" + toolchain.name)) {
      dirs.push_back(place + "/" + toolchain.name);
    }
  }
  return dirs;
}

// The directory of the NDK in which something would have to be removed and may not be; "" when
// none.
std::string unwritable_directory(const std::string& ndk,
                                 const std::vector<std::string>& definitions) {
  std::vector<std::string> dirs{ndk};
  for (const std::string& definition : definitions) {
    dirs.push_back(directory_of(definition));
    dirs.push_back(definition);
  }
  for (const std::string& dir : dirs) {
    if (why_not_writable(dir) != 0) {
      return dir;
    }
  }
  return "";
}

// What `name` leads to. Throws std::runtime_error where that cannot be told, so that nothing is
// taken for missing which is there.
mode_t kind_of(const std::string& name) {
  try {
    const std::optional<struct stat> status = find_status(name);
    return status ? status->st_mode & S_IFMT : 0;
  } catch (const std::runtime_error& failure) {
    throw std::runtime_error(failure.what() +
                             std::string("; leave the NDK alone with --keep-ndk, or try again"));
  }
}

}  // namespace

Removal plan_removal(const Compiler& compiler, const std::string& ndk) {
  Removal removal;
  removal.ndk = ndk;
  if (kind_of(ndk) != S_IFDIR) {
    removal.why_left = "the NDK " + ndk + " is gone, so nothing is taken out of it";
    removal.is_warning = true;
    return removal;
  }
  const std::vector<std::string> definitions = definitions_in(compiler, ndk);
  const std::string stays =
      definitions.empty() ? "stays in " + ndk : "stays: " + join(definitions, ", ");
  if (const std::string dir = unwritable_directory(ndk, definitions); !dir.empty()) {
    removal.why_left = "you may not write in " + dir +
                       ", so what the integration script put into the NDK " + stays;
    removal.is_warning = true;
    return removal;
  }
  const std::string script = compiler.toolchains + "/" + kScript;
  if (kind_of(script) != S_IFREG) {
    removal.why_left = std::string("the compiler package has no ") + kScript +
                       ", so what its integration script put into the NDK " + stays;
    return removal;
  }
  if (!is_executable_file(script)) {
    throw std::runtime_error("the removal script " + script +
                             " is not executable; make it so, or leave the NDK alone with "
                             "--keep-ndk");
  }
  if (const std::string why = why_not_runnable("the removal script", script); !why.empty()) {
    throw std::runtime_error(why + "; put it there, or leave the NDK alone with --keep-ndk");
  }
  if (const auto surprise = shell_surprise(ndk)) {
    throw std::runtime_error(*surprise + ", or leave the NDK alone with --keep-ndk");
  }
  removal.command = std::string("./") + kScript + " \"" + ndk + "\"";
  return removal;
}

void run_removal(const Compiler& compiler, Removal& removal, ScriptWatcher& watcher) {
  if (removal.command.empty()) {
    return;
  }
  ProcessOptions options;
  options.working_directory = compiler.toolchains;
  options.watcher = &watcher;
  throw_if_interrupted();
  watcher.begins(removal.command);
  const ProcessResult result = run_process({"/bin/sh", "-c", removal.command}, options);
  watcher.ended();
  removal.script = ScriptRun{removal.command, result.exit_status, result.output};
  removal.left = definitions_in(compiler, removal.ndk);
  throw_if_interrupted();
}

std::string why_removal_failed(const Removal& removal) {
  return "the removal script failed with exit status " +
         std::to_string(removal.script->exit_status) + ": " + removal.script->command;
}

}  // namespace ndk_integrate
