#include "console_host/commands/install.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <sstream>
#include <stdexcept>

#include "console_host/base/durable_file.h"
#include "console_host/base/errors.h"
#include "console_host/base/files.h"
#include "console_host/base/paths.h"
#include "console_host/base/process.h"
#include "console_host/commands/output.h"
#include "console_host/ndk/judgement.h"
#include "console_host/package/integration.h"
#include "console_host/package/lock.h"
#include "console_host/package/preflight.h"
#include "console_host/package/store.h"
#include "console_host/services/log.h"
#include "console_host/services/session.h"
#include "host/host.h"

namespace ndk_integrate {

namespace {

// What an installation did, for people and programs.
struct Report {
  std::string outcome = "failed";  // "integrated", "disabled", "not-selected", "no-ndk" or "failed"
  bool changed = false;            // true when a file's bytes differ from before
  std::optional<std::string> ndk;
  std::optional<std::string> release;
  std::optional<std::string> component;
  std::vector<PatchedFile> files;
  std::vector<std::string> diffs;  // in a dry run, one a file
  std::optional<ScriptRun> script;
  std::string command;  // of the script, also when it did not run
  std::string message;
};

// Ends an installation before it integrates.
class Stop : public std::runtime_error {
 public:
  Stop(std::string outcome, const std::string& message)
      : std::runtime_error(message), outcome_(std::move(outcome)) {}
  const std::string& outcome() const { return outcome_; }

 private:
  std::string outcome_;
};

bool is_enabled(const Session& session) { return session.get("NDK_INTEGRATION_ENABLED") == "yes"; }

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

// Lets the plug-in find the NDK, or judge the one that is preset. Returns why it cannot be used, ""
// when it can.
std::string find_ndk(const Plugin& plugin, Session& session) {
  if (!session.get("NDK_PATH").empty()) {
    plugin.validate_ndk_path(session.handle());
    const std::string problem = problem_of(session.get("NDK_PATH_STATUS"));
    return problem.empty() ? ""
                           : "NDK_PATH is " + session.get("NDK_PATH") + ", but " + problem +
                                 "; -v shows what was found there";
  }
  plugin.detect_ndk(session.handle());
  if (!session.get("NDK_PATH").empty()) {
    return "";
  }
  return "no NDK was found: none of the directories in NDK_DEFAULT_SEARCH_PATH_LINUX (" +
         session.get("NDK_DEFAULT_SEARCH_PATH_LINUX") +
         ") is a writable NDK of a supported release (" + session.get("NDK_SUPPORTED_VERSIONS") +
         "); -v shows what was found in each";
}

void tell_ndk(const Plugin& plugin, const Session& session, Report& report) {
  const std::string dir = session.get("NDK_PATH");
  const std::string revision = read_revision(dir);
  report.ndk = dir;
  report.release = readable_release(plugin, dir);
  say("NDK: " + dir);
  say("release: " + report.release.value_or("unknown") +
      (revision.empty() ? "" : " (" + revision + ")"));
}

// The compiler, from the component that asks for the integration.
void select_component(const Session& session, Report& report) {
  if (session.get("NDK_INTEGRATION_INSTALL_DETECTED") != "yes" || session.compiler() == nullptr) {
    const std::string patterns = session.get("NDK_COMPONENT_PATTERNS");
    throw Stop("not-selected",
               "no selected component asks for the NDK integration: " +
                   (patterns.empty() ? "NDK_COMPONENT_PATTERNS is empty"
                                     : "none has one of " + patterns + " in its id"));
  }
  const Component& compiler = *session.compiler();
  report.component = compiler.id;
  say("component: " + compiler.id + " (version " + compiler.version + ", package number " +
      compiler.packageNumber + ")");
}

// The first two steps of an installer: the NDK and the components.
void prepare(const Plugin& plugin, Session& session, Report& report) {
  const std::string problem = find_ndk(plugin, session);
  plugin.check_if_ndk_integration_files_are_to_be_installed(session.handle());
  if (problem.empty()) {
    tell_ndk(plugin, session, report);
  } else if (is_enabled(session)) {
    throw Stop("no-ndk", problem);
  } else {
    say("NDK: none, and none needed: integration is disabled");
  }
  select_component(session, report);
}

// The directory for temporary files, absolute.
std::string directory_for_temporary_files() {
  const char* name = std::getenv("TMPDIR");
  return name == nullptr || *name == '\0' ? "/tmp" : absolute_path(working_directory(), name);
}

// A directory in `parent` that goes with this object.
class TemporaryDirectory {
 public:
  explicit TemporaryDirectory(const std::string& parent) : name_(parent + "/ndk-integrate-XXXXXX") {
    if (mkdtemp(name_.data()) == nullptr) {
      throw std::runtime_error("cannot make a temporary directory in " + parent + ": " +
                               std::strerror(errno));
    }
  }
  ~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(name_, ignored);
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  const std::string& name() const { return name_; }

 private:
  std::string name_;
};

// The differences between two texts of the file `path`, in the unified form.
std::string diff(const std::string& path, const std::string& changed) {
  // What reads a diff takes a name with blanks as a whole only when a tab follows it.
  const std::string label = path.find(' ') == std::string::npos ? path : path + "\t";
  const ProcessResult result =
      run_process({"diff", "-u", "--text", "--label", label, "--label", label, path, changed});
  if (result.exit_status > 1) {
    throw std::runtime_error("diff could not compare " + path + ": " + result.output);
  }
  return result.output;
}

void note_integration(const Integration& integration, Report& report) {
  report.files = integration.files();
  report.script = integration.script();
  report.command = integration.command();
  report.changed = integration.changed();
}

// Runs integrate_ndk to its end. What it did stands in the report also when it ended early.
void run_integration(const Plugin& plugin, Session& session, Integration& integration,
                     Report& report) {
  try {
    plugin.integrate_ndk(session.handle());
    integration.finish();
  } catch (...) {
    integration.abandon();
    note_integration(integration, report);
    throw;
  }
  note_integration(integration, report);
}

// What would end an installation, and a dry run does not come to: a script that cannot be run. The
// plug-in has made the script's directory the working directory.
void refuse_missing_script(const std::string& command) {
  const std::string script = command.substr(0, command.find(' '));
  if (!script.empty() && (::file_exists(script, false) == 0 || access(script.c_str(), X_OK) != 0)) {
    throw std::runtime_error("the integration script " + script +
                             " is missing or not executable in " + working_directory());
  }
}

// The same for directories that may not be written.
void refuse_unwritable_directories(const Store& store, const std::vector<PatchedFile>& files) {
  std::vector<std::string> dirs{::file_exists(store.directory(), true) == 0 ? store.root()
                                                                            : store.directory()};
  for (const PatchedFile& file : files) {
    dirs.push_back(directory_of(file.path));
  }
  for (const std::string& dir : dirs) {
    if (::file_exists(dir, true) != 0 && ::is_writable(dir) == 0) {
      throw std::runtime_error("you may not write in " + dir);
    }
  }
}

void integrate_dry(const Plugin& plugin, Session& session, const std::string& temporary,
                   Store& store, Report& report) {
  const TemporaryDirectory staging(temporary);
  Integration integration(Integration::Mode::kDryRun, store, staging.name());
  run_integration(plugin, session, integration, report);
  for (const PatchedFile& file : report.files) {
    report.diffs.push_back(file.staged.empty() ? "" : diff(file.path, file.staged));
  }
  refuse_unwritable_directories(store, report.files);
  refuse_missing_script(report.command);
}

void integrate_for_good(const Plugin& plugin, Session& session, Store& store, const Lock& lock,
                        Report& report) {
  const StagingDirectory staging(store);
  Integration integration(Integration::Mode::kCommit, store, staging.name(), &lock);
  run_integration(plugin, session, integration, report);
}

// Why the integration failed; "" when it did not.
std::string why_failed(const Report& report) {
  for (const PatchedFile& file : report.files) {
    if (file.result == PatchedFile::Result::kMissing) {
      return "the template " + file.path +
             " is missing: is the compiler package installed there whole?";
    }
    if (file.result == PatchedFile::Result::kFailed) {
      return "the template " + file.path + " could not be filled in; -v shows more";
    }
  }
  if (report.script && report.script->exit_status != 0) {
    const int status = report.script->exit_status;
    const bool could_not_run = status == 126 || status == 127;  // the shell's own numbers
    return "the integration script failed with exit status " + std::to_string(status) +
           (could_not_run ? " (is it there, beside the toolchain definitions, and executable?): "
                          : ": ") +
           report.script->command;
  }
  return "";
}

void integrate(const Plugin& plugin, Session& session, bool dry_run, Report& report) {
  if (is_enabled(session)) {
    refuse_shell_surprises(session.get("NDK_PATH"));
  }
  const std::string root = compiler_root(session);
  if (::file_exists(root, true) == 0) {
    throw std::runtime_error("the compiler package is not installed: there is no directory " +
                             root + " (VORN_INSTALL_DIR followed by the component's subdir)");
  }
  const std::string temporary = directory_for_temporary_files();
  // The plug-in goes on where it cannot enter the compiler's directory: the script is then not to
  // be found.
  if (chdir("/") != 0) {
    throw std::runtime_error("cannot enter the directory /");
  }
  refuse_odd_files(plugin, session, root);
  if (dry_run) {
    Store store(root);
    refuse_edited_files(store);
    integrate_dry(plugin, session, temporary, store, report);
  } else {
    make_directory(Store::directory_in(root));
    const Lock lock(Store::directory_in(root));
    Store store(root);
    refuse_edited_files(store);
    integrate_for_good(plugin, session, store, lock, report);
  }
  const std::string failure = why_failed(report);
  if (!failure.empty()) {
    throw std::runtime_error(failure);
  }
  report.outcome = is_enabled(session) ? "integrated" : "disabled";
  report.message = is_enabled(session)
                       ? "the compiler is integrated into " + session.get("NDK_PATH")
                       : "the compiler is installed without NDK integration";
}

const char* text_of(PatchedFile::Result result) {
  switch (result) {
    case PatchedFile::Result::kPatched:
      return "patched";
    case PatchedFile::Result::kMissing:
      return "missing";
    default:
      return "failed";
  }
}

void tell_files(const Report& report, bool dry_run) {
  for (const PatchedFile& file : report.files) {
    if (file.result == PatchedFile::Result::kPatched) {
      say((dry_run ? "would fill in: " : "filled in: ") + file.path + " (" +
          std::to_string(file.placeholders) +
          (file.placeholders == 1 ? " placeholder)" : " placeholders)"));
    } else {
      say(text_of(file.result) + (": " + file.path));
    }
  }
}

void tell_script(const Report& report, bool dry_run) {
  if (report.command.empty()) {
    return;
  }
  say((dry_run ? "would run: " : "script: ") + report.command);
  if (report.script) {
    std::istringstream output(report.script->output);
    for (std::string line; std::getline(output, line);) {
      say("script printed: " + line);
    }
    if (report.script->exit_status != 0) {
      say("script exit status: " + std::to_string(report.script->exit_status));
    }
  }
}

void tell(const Report& report, bool dry_run) {
  tell_files(report, dry_run);
  tell_script(report, dry_run);
  for (const std::string& text : report.diffs) {
    print(text);
  }
  if (report.outcome == "integrated" || report.outcome == "disabled") {
    say_always((dry_run ? "dry run, nothing is changed; after an installation: " : "done: ") +
               report.message);
  } else {
    complain("not done: " + report.message);
  }
}

Json json_of_files(const Report& report) {
  Json files = Json::array();
  for (std::size_t i = 0; i < report.files.size(); ++i) {
    const PatchedFile& file = report.files[i];
    Json object{
        {"path", file.path}, {"placeholders", file.placeholders}, {"result", text_of(file.result)}};
    if (!report.diffs.empty()) {
      object["diff"] = report.diffs[i];
    }
    files.push_back(object);
  }
  return files;
}

void tell_as_json(const Report& report) {
  Json script = nullptr;
  if (report.script) {
    script = {{"command", report.script->command},
              {"exit_status", report.script->exit_status},
              {"output", report.script->output}};
  }
  say_json({{"schema", 1},
            {"outcome", report.outcome},
            {"changed", report.changed},
            {"ndk", optional_text(report.ndk)},
            {"release", optional_text(report.release)},
            {"component", optional_text(report.component)},
            {"files", json_of_files(report)},
            {"script", script},
            {"message", report.message}});
}

}  // namespace

ExitCode install(const Plugin& plugin, const Installation& installation,
                 const InstallOptions& options) {
  if (options.json) {
    be_quiet();
  }
  Session session(installation);
  Report report;
  try {
    prepare(plugin, session, report);
    integrate(plugin, session, options.dry_run, report);
  } catch (const Stop& stop) {
    report.outcome = stop.outcome();
    report.message = stop.what();
  } catch (const std::exception& failure) {
    report.message = failure.what();
  } catch (...) {
    report.message = describe_current_exception();
  }
  if (options.json) {
    tell_as_json(report);
  } else {
    tell(report, options.dry_run);
  }
  return report.outcome == "integrated" || report.outcome == "disabled" ? kDone : kNotDone;
}

}  // namespace ndk_integrate
