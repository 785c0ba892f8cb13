#include "console_host/install.h"

#include <unistd.h>

#include <sstream>

#include "console_host/integration_record.h"
#include "console_host/log.h"
#include "console_host/output.h"
#include "console_host/session.h"

namespace {

ExitCode stop(const std::string& why) {
  complain("not done: " + why);
  return kNotDone;
}

// An NDK as the plug-in judged it.
struct FoundNdk {
  std::string dir;      // "" when there is none
  std::string problem;  // why it cannot be used; "" when it can
};

// What a verdict in NDK_PATH_STATUS means to a person.
std::string problem_of(const std::string& status) {
  if (status == "ok") {
    return "";
  }
  if (status == "nok") {
    return "it is no NDK directory";
  }
  if (status == "notwritable") {
    return "it is an NDK, but you may not write there";
  }
  return "its release is not among NDK_SUPPORTED_VERSIONS";
}

FoundNdk find_ndk(const Plugin& plugin, Session& session) {
  if (session.get("NDK_PATH").empty()) {
    plugin.detect_ndk(session.handle());
    return {session.get("NDK_PATH"), ""};
  }
  plugin.validate_ndk_path(session.handle());
  return {session.get("NDK_PATH"), problem_of(session.get("NDK_PATH_STATUS"))};
}

// The release of the NDK in `dir` as "r21e (21.4.7075529)".
std::string describe_release(const Plugin& plugin, const std::string& dir) {
  const LogPause no_step_of_the_installation;
  return plugin.release(dir) + " (" + IniDb(dir, "source.properties", "=").value("Pkg.Revision") +
         ")";
}

void tell_ndk(const Plugin& plugin, const FoundNdk& ndk) {
  if (ndk.dir.empty()) {
    say("NDK: none found, and none needed: integration is disabled");
  } else if (!ndk.problem.empty()) {
    say("NDK: " + ndk.dir + ": " + ndk.problem + "; none needed: integration is disabled");
  } else {
    say("NDK: " + ndk.dir);
    say("release: " + describe_release(plugin, ndk.dir));
  }
}

// Why this NDK cannot be integrated into; "" when it can.
std::string why_unusable(const Session& session, const FoundNdk& ndk) {
  if (ndk.dir.empty()) {
    return "no NDK was found: none of the directories in NDK_DEFAULT_SEARCH_PATH_LINUX (" +
           session.get("NDK_DEFAULT_SEARCH_PATH_LINUX") +
           ") is a writable NDK of a supported release (" + session.get("NDK_SUPPORTED_VERSIONS") +
           "); -v shows what was found in each";
  }
  if (!ndk.problem.empty()) {
    return "NDK_PATH is " + ndk.dir + ", but " + ndk.problem + "; -v shows what was found there";
  }
  return "";
}

void tell_files(const IntegrationRecord& record) {
  for (const PatchedFile& file : record.files()) {
    switch (file.result) {
      case PatchedFile::Result::kPatched:
        say("filled in: " + file.path + " (" + std::to_string(file.placeholders) +
            (file.placeholders == 1 ? " placeholder)" : " placeholders)"));
        break;
      case PatchedFile::Result::kMissing:
        say("missing: " + file.path);
        break;
      case PatchedFile::Result::kFailed:
        say("failed: " + file.path);
        break;
    }
  }
}

void tell_script(const ScriptRun& script) {
  say("script: " + script.command);
  std::istringstream output(script.output);
  for (std::string line; std::getline(output, line);) {
    say("script printed: " + line);
  }
  if (script.exit_status != 0) {
    say("script exit status: " + std::to_string(script.exit_status));
  }
}

// Why the integration failed; "" when it did not.
std::string why_failed(const IntegrationRecord& record) {
  for (const PatchedFile& file : record.files()) {
    if (file.result == PatchedFile::Result::kMissing) {
      return "the template " + file.path +
             " is missing: is the compiler package installed there whole?";
    }
    if (file.result == PatchedFile::Result::kFailed) {
      return "the template " + file.path +
             " could not be filled in: may you write it and its directory? -v shows more";
    }
  }
  if (record.script() && record.script()->exit_status != 0) {
    return "the integration script failed with exit status " +
           std::to_string(record.script()->exit_status) + ": " + record.script()->command;
  }
  return "";
}

ExitCode integrate(const Plugin& plugin, Session& session) {
  // The plug-in goes on where it cannot enter the compiler's directory: the script is then not to
  // be found.
  if (chdir("/") != 0) {
    return stop("cannot enter the directory /");
  }
  const IntegrationRecord record;
  plugin.integrate_ndk(session.handle());
  tell_files(record);
  if (record.script()) {
    tell_script(*record.script());
  }
  const std::string failure = why_failed(record);
  if (!failure.empty()) {
    return stop(failure);
  }
  say(record.script() ? "done: the compiler is integrated into " + session.get("NDK_PATH")
                      : "done: the compiler is installed without NDK integration");
  return kDone;
}

}  // namespace

ExitCode install(const Plugin& plugin, const Installation& installation) {
  Session session(installation);
  const bool enabled = session.get("NDK_INTEGRATION_ENABLED") == "yes";

  const FoundNdk ndk = find_ndk(plugin, session);
  plugin.check_if_ndk_integration_files_are_to_be_installed(session.handle());
  const std::string unusable = why_unusable(session, ndk);
  if (enabled && !unusable.empty()) {
    return stop(unusable);
  }
  tell_ndk(plugin, ndk);

  if (session.get("NDK_INTEGRATION_INSTALL_DETECTED") != "yes") {
    const std::string patterns = session.get("NDK_COMPONENT_PATTERNS");
    return stop("no selected component asks for the NDK integration: " +
                (patterns.empty() ? "NDK_COMPONENT_PATTERNS is empty"
                                  : "none has one of " + patterns + " in its id"));
  }
  const Component& compiler = *session.compiler();
  say("component: " + compiler.id + " (version " + compiler.version + ", package number " +
      compiler.packageNumber + ")");
  return integrate(plugin, session);
}
