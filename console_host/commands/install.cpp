#include "console_host/commands/install.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <optional>
#include <stdexcept>

#include "console_host/base/errors.h"
#include "console_host/base/escaping.h"
#include "console_host/base/files.h"
#include "console_host/base/interruption.h"
#include "console_host/base/temporary_directory.h"
#include "console_host/base/text.h"
#include "console_host/base/utc_time.h"
#include "console_host/commands/find.h"
#include "console_host/commands/output.h"
#include "console_host/commands/report.h"
#include "console_host/commands/script_teller.h"
#include "console_host/commands/verify.h"
#include "console_host/ndk/asked_releases.h"
#include "console_host/ndk/search.h"
#include "console_host/package/compiler.h"
#include "console_host/package/compiler_tree.h"
#include "console_host/package/lock.h"
#include "console_host/package/performance.h"
#include "console_host/package/rehearsal.h"
#include "console_host/package/removal.h"
#include "console_host/package/staging.h"
#include "console_host/package/store.h"
#include "console_host/services/log.h"

namespace ndk_integrate {

namespace {

// Ends an installation before it integrates.
class Stop : public std::runtime_error {
 public:
  Stop(Report::Outcome outcome, bool is_nothing_to_do, const std::string& message)
      : std::runtime_error(message), outcome_(outcome), is_nothing_to_do_(is_nothing_to_do) {}
  Report::Outcome outcome() const { return outcome_; }
  bool is_nothing_to_do() const { return is_nothing_to_do_; }

 private:
  Report::Outcome outcome_;
  bool is_nothing_to_do_;
};

// --- The NDK ---

// Lets the plug-in find the NDK, or judge the one that is preset.
std::vector<Judgement> find_ndk(const Plugin& plugin, Session& session) {
  const std::string preset = session.get("NDK_PATH");
  if (preset.empty()) {
    return search(plugin, session);
  }
  plugin.validate_ndk_path(session.handle());
  return {explain(plugin, {preset, preset, "NDK_PATH"}, session.get("NDK_PATH_STATUS"),
                  session.get("NDK_SUPPORTED_VERSIONS"))};
}

// True when the system failed, so that nothing can be said of the directory.
bool is_system_failure(const Judgement& judgement) {
  const int number = judgement.error_number;
  return number != 0 && number != EACCES && number != EPERM && number != ENOENT &&
         number != ENOTDIR;
}

std::string why_preset_is_bad(const Judgement& judgement) {
  return "NDK_PATH is " + judgement.path + ", which cannot be used: " + judgement.message;
}

[[noreturn]] void stop_without_ndk(bool is_preset, const std::vector<Judgement>& judgements) {
  if (is_preset) {
    throw Stop(Report::Outcome::kNoNdk, false, why_preset_is_bad(judgements.front()));
  }
  const bool is_failure = std::any_of(judgements.begin(), judgements.end(), is_system_failure);
  std::string what = "NDK_DEFAULT_SEARCH_PATH_LINUX names no directory";
  if (judgements.size() == 1) {
    what = line_of(judgements.front());
  } else if (judgements.size() > 1) {
    what = "none of the " + std::to_string(judgements.size()) +
           " directories in NDK_DEFAULT_SEARCH_PATH_LINUX can be used";
  }
  throw Stop(Report::Outcome::kNoNdk, !is_failure, "no NDK was found: " + what);
}

void tell_ndk(const Judgement& judgement, Report& report) {
  report.ndk = judgement.path;
  report.release = judgement.release;
  say("NDK: " + judgement.path);
  say("release: " + judgement.release.value_or("unknown") +
      (judgement.revision ? " (" + *judgement.revision + ")" : ""));
}

// --- The component ---

// The compiler, from the component that asks for the integration.
void select_component(const Session& session, Report& report) {
  if (session.compiler_info() == nullptr) {
    throw Stop(Report::Outcome::kNotSelected, true,
               "no selected component asks for the NDK integration: " + why_not_selected(session));
  }
  const ComponentInfo& compiler = *session.compiler_info();
  report.component = compiler.id;
  say("component: " + compiler.id + " (version " + compiler.version + ", package number " +
      compiler.package_number + ")");
}

// The first two steps of an installer: the NDK and the components.
void prepare(const Plugin& plugin, Session& session, Report& report) {
  const bool is_preset = !session.get("NDK_PATH").empty();
  report.candidates = find_ndk(plugin, session);
  plugin.check_if_ndk_integration_files_are_to_be_installed(session.handle());
  require_version(session);
  if (!report.candidates.empty() && report.candidates.back().ok()) {
    tell_ndk(report.candidates.back(), report);
  } else if (is_integration_enabled(session)) {
    stop_without_ndk(is_preset, report.candidates);
  } else {
    if (is_preset) {
      report.warnings.push_back(why_preset_is_bad(report.candidates.front()));
    }
    say("NDK: none, and none needed: integration is disabled");
  }
  select_component(session, report);
}

// --- The integration ---

InstallationRecord record_of(const Compiler& compiler, const Session& session,
                             const Report& report) {
  InstallationRecord record;
  record.version = compiler.version;
  if (is_integration_enabled(session)) {
    record.ndk = compiler.ndk;
    record.release = report.release;
  }
  record.component = report.component.value_or("");
  record.time = utc_time();
  return record;
}

void refuse_missing_compiler(const Compiler& compiler) {
  if (!find_compiler_tree(compiler.root)) {
    throw std::runtime_error("the compiler package is not installed: there is no directory " +
                             compiler.root +
                             " (VORN_INSTALL_DIR followed by the component's subdir)");
  }
}

// The directory in which originals could not be kept; "" when they can be.
std::string unwritable_directory(const CompilerTree& tree) {
  const Directory& root = tree.directory();
  const std::string name = root.name_of(Store::kDirectory);
  const std::optional<struct stat> kept = root.status_of(Store::kDirectory);
  const int why_not = kept && S_ISDIR(kept->st_mode) ? why_not_writable(name) : ENOENT;
  if (why_not != ENOENT) {
    return why_not == 0 ? "" : name;
  }
  // It is still to be made, or an undo has just removed it.
  return root.why_not_writable() == 0 ? "" : root.name();
}

// Throws std::runtime_error, with all problems named, when something stands against the
// installation.
void refuse_problems(Report& report) {
  if (report.problems.empty()) {
    if (report.removal && !report.removal->why_left.empty()) {
      report.warnings.push_back(report.removal->why_left);
    }
    return;
  }
  report.removal.reset();
  throw std::runtime_error(
      report.problems.size() == 1
          ? report.problems.front()
          : std::to_string(report.problems.size()) +
                " problems, and nothing was changed: " + join(report.problems, "; "));
}

void add_unless_there(std::vector<std::string>& texts, const std::string& text) {
  if (std::find(texts.begin(), texts.end(), text) == texts.end()) {
    texts.push_back(text);
  }
}

void add(std::vector<std::string>& texts, const std::vector<std::string>& more) {
  texts.insert(texts.end(), more.begin(), more.end());
}

bool is_same_directory(const std::string& one, const std::string& other) {
  std::error_code none;
  return one == other || std::filesystem::equivalent(one, other, none);
}

// What is to be done about the NDK that the compiler was installed for, where it is another one.
void look_at_former_ndk(const Compiler& compiler, const Session& session, const Store& store,
                        Report& report) {
  const auto record = store.installation(compiler.version);
  if (report.keeps_former_ndk || !record || !record->ndk ||
      (is_integration_enabled(session) && is_same_directory(*record->ndk, compiler.ndk))) {
    return;
  }
  try {
    report.removal = plan_removal(compiler, *record->ndk);
  } catch (const std::exception& problem) {
    report.problems.emplace_back(problem.what());
  }
}

// What can be said before the plug-in is asked.
void look_around(const Compiler& compiler, const Session& session, const Store& store,
                 Report& report) {
  if (is_integration_enabled(session)) {
    if (const auto surprise = shell_surprise(compiler.ndk)) {
      report.problems.push_back(*surprise);
    }
    if (utf8_text(compiler.ndk) != compiler.ndk) {
      report.problems.push_back(
          "the name of the NDK directory " + one_line(compiler.ndk) +
          " is not UTF-8, and could not be recorded; make a link with a plain "
          "name to it (ln -s) and give that with --ndk");
    }
    if (compiler.ndk.find(' ') != std::string::npos) {
      report.warnings.push_back("the path of the NDK, " + compiler.ndk +
                                ", holds a blank, which ndk-build refuses");
    }
  }
  if (const auto misleading = misleading_enabled_value(session)) {
    report.warnings.push_back(*misleading);
  }
  for (const std::string& entry : entries_that_never_match(session.get("NDK_SUPPORTED_VERSIONS"))) {
    report.warnings.push_back("NDK_SUPPORTED_VERSIONS: " + entry);
  }
  for (const std::string& file : store.known_files(compiler.version)) {
    if (const std::string edit = store.why_edited(file); !edit.empty()) {
      report.problems.push_back(edit);
    }
  }
  look_at_former_ndk(compiler, session, store, report);
}

// Rehearses on copies in `staging`. The log tells of it where a person needs that.
void rehearse(const Plugin& plugin, Session& session, const Compiler& compiler, Store& store,
              const Directory& staging, Report& report) {
  HeldLog log;
  Rehearsal rehearsal(compiler, store, staging);
  rehearsal.run(plugin, session);
  for (const std::string& problem : rehearsal.problems()) {
    add_unless_there(report.problems, problem);
  }
  if (report.problems.empty()) {
    add(report.warnings, rehearsal.warnings());
  }
  report.command = rehearsal.command();
  if (report.is_dry_run || !report.problems.empty()) {
    log.release();
  }
  if (report.is_dry_run) {
    report.files = rehearsal.files();
    report.changed = report.problems.empty() && rehearsal.would_change();
  }
}

// Performs what was rehearsed. What it did stands in the report also when it ended early.
void perform(const Plugin& plugin, Session& session, const Compiler& compiler, Store& store,
             const Directory& staging, ScriptWatcher& watcher, Report& report) {
  Performance performance(compiler, store, staging, record_of(compiler, session, report), watcher);
  const auto note = [&] {
    report.files = performance.files();
    report.script = performance.script();
    report.changed = performance.changed();
    add(report.warnings, performance.warnings());
  };
  try {
    performance.run(plugin, session);
  } catch (...) {
    note();
    throw;
  }
  note();
}

// A rehearsal that nothing comes after: for a dry run, or to name all that stands against an
// installation which cannot even begin.
void rehearse_only(const Plugin& plugin, Session& session, const Compiler& compiler,
                   const CompilerTree& tree, Report& report) {
  Store store(tree);
  look_around(compiler, session, store, report);
  const TemporaryStaging staging;
  rehearse(plugin, session, compiler, store, staging.directory(), report);
  refuse_problems(report);
}

// Throws std::runtime_error when the compiler could not be taken out of the NDK that it was in.
void refuse_failed_removal(const Removal& removal) {
  if (removal.has_failed()) {
    throw std::runtime_error("the compiler is still integrated into " + removal.ndk + ": " +
                             why_removal_failed(removal) + "; --keep-ndk leaves that NDK alone");
  }
}

void rehearse_then_perform(const Plugin& plugin, Session& session, const Compiler& compiler,
                           const CompilerTree& tree, Report& report) {
  const Lock lock(tree, Store::kDirectory);
  Store store(tree, &lock);
  {
    const StagingDirectory staging(store);
    add(report.warnings, staging.rescued());
    look_around(compiler, session, store, report);
    rehearse(plugin, session, compiler, store, staging.directory(), report);
  }
  refuse_problems(report);
  throw_if_interrupted();
  const StagingDirectory staging(store);
  store.reopen(compiler.version);
  ScriptTeller teller;
  if (report.removal) {
    run_removal(compiler, *report.removal, teller);
    refuse_failed_removal(*report.removal);
  }
  perform(plugin, session, compiler, store, staging.directory(), teller, report);
}

// Throws std::runtime_error when the integration script failed.
void refuse_failed_script(const Report& report) {
  if (!report.script || report.script->exit_status == 0) {
    return;
  }
  const int status = report.script->exit_status;
  const bool could_not_run = status == 126 || status == 127;  // the shell's own numbers
  throw std::runtime_error(
      "the integration script failed with exit status " + std::to_string(status) +
      (could_not_run ? " (is it there, beside the toolchain definitions, and executable?): "
                     : ": ") +
      report.script->command);
}

// Proves that the NDK builds with the compiler. Throws std::runtime_error when it does not.
void verify_integration(const Plugin& plugin, const Session& session, const Compiler& compiler,
                        Report& report) {
  report.verification = verify_toolchains(plugin, compiler, compiler.ndk, VerifyOptions());
  if (report.verification->failures() > 0) {
    throw std::runtime_error("the compiler is integrated, but " + summary_of(*report.verification) +
                             "; to take it back: ndk-integrate undo " +
                             session.compiler_info()->source.file);
  }
}

void integrate(const Plugin& plugin, Session& session, Report& report) {
  const HeldSignals held;
  const Compiler compiler = compiler_of(plugin, session);
  refuse_missing_compiler(compiler);
  directory_for_temporary_files();  // which a relative TMPDIR names from here
  // The plug-in goes on where it cannot enter the compiler's directory: the script is then not to
  // be found.
  if (chdir("/") != 0) {
    throw std::runtime_error("cannot enter the directory /: " + system_error_text(errno));
  }
  const CompilerTree tree(compiler.root);
  const std::string unwritable = unwritable_directory(tree);
  if (!unwritable.empty()) {
    report.problems.push_back("you may not write in " + unwritable);
  }
  if (report.is_dry_run || !unwritable.empty()) {
    rehearse_only(plugin, session, compiler, tree, report);
  } else {
    rehearse_then_perform(plugin, session, compiler, tree, report);
    refuse_failed_script(report);
  }
  const bool is_enabled = is_integration_enabled(session);
  if (is_enabled && report.is_to_be_verified) {
    verify_integration(plugin, session, compiler, report);
  }
  report.outcome = is_enabled ? Report::Outcome::kIntegrated : Report::Outcome::kDisabled;
  report.message = is_enabled ? "the compiler is integrated into " + session.get("NDK_PATH")
                              : "the compiler is installed without NDK integration";
}

}  // namespace

ExitCode install(const Plugin& plugin, const Installation& installation,
                 const InstallOptions& options) {
  if (options.json) {
    be_quiet();
  }
  Session session(installation);
  Report report;
  report.is_dry_run = options.dry_run;
  report.is_optional = options.optional;
  report.keeps_former_ndk = options.keep_ndk;
  report.is_to_be_verified = options.verify;
  report.is_json = options.json;
  try {
    prepare(plugin, session, report);
    integrate(plugin, session, report);
  } catch (const UsageError&) {
    throw;
  } catch (const Stop& stop) {
    report.outcome = stop.outcome();
    report.is_nothing_to_do = stop.is_nothing_to_do();
    report.message = stop.what();
  } catch (...) {
    report.message = describe_current_exception();
  }
  return tell(report);
}

}  // namespace ndk_integrate
