// The program ndk-integrate: a small installer host for the command line. This file only parses the
// command line and dispatches.
#include <fcntl.h>
#include <malloc.h>
#include <poll.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <csignal>
#include <iostream>
#include <sstream>

#include "console_host/base/errors.h"
#include "console_host/base/interruption.h"
#include "console_host/base/paths.h"
#include "console_host/base/shell_words.h"
#include "console_host/base/text.h"
#include "console_host/base/utc_time.h"
#include "console_host/commands/check_host.h"
#include "console_host/commands/check_host_program.h"
#include "console_host/commands/find.h"
#include "console_host/commands/install.h"
#include "console_host/commands/output.h"
#include "console_host/commands/release.h"
#include "console_host/commands/status.h"
#include "console_host/commands/undo.h"
#include "console_host/commands/usage.h"
#include "console_host/commands/verify.h"
#include "console_host/ndk/plugin.h"
#include "console_host/package/installation_file.h"
#include "console_host/services/log.h"

namespace ndk_integrate {

namespace {

struct Options {
  std::string log;
  std::string plugin;
  bool verbose = false;
  bool quiet = false;
  std::string installation;
  std::optional<std::string> ndk;
  std::vector<std::string> settings;
  InstallOptions install;
  UndoOptions undo;
  bool status_json = false;
  VerifyOptions verify;
  std::string host_check;
  HostProgramOptions host_program;
  FindOptions find;
  CheckOptions check;
  std::string release;
  bool release_json = false;
  std::string command_line;
  bool json = false;  // whether the command line asks for JSON, also where it is wrong otherwise
};

ExitCode fail(const std::string& what, ExitCode code) {
  complain(what);
  return code;
}

// The outcome of a run that an exception ended.
const char* word_of(ExitCode code) {
  switch (code) {
    case kWrongUsage:
      return "wrong-usage";
    case kNoPlugin:
      return "no-plugin";
    default:
      return "failed";
  }
}

// The exit code that goes with the exception that is being handled.
ExitCode code_of_current_exception() {
  try {
    throw;
  } catch (const UsageError&) {
    return kWrongUsage;
  } catch (const PluginError&) {
    return kNoPlugin;
  } catch (...) {
    return kNotDone;
  }
}

// Tells of the exception that is being handled, and returns the exit code that goes with it.
ExitCode fail_with_current_exception(bool json) {
  const std::string what = describe_current_exception();
  const ExitCode code = code_of_current_exception();
  if (json) {
    say_json({{"schema", 1}, {"outcome", word_of(code)}, {"changed", false}, {"message", what}});
  }
  return fail((code == kNotDone ? "not done: " : "") + what, code);
}

// Runs `command`, and ends it where an exception left the plug-in. Its type may be the plug-in's
// own, so this has to happen as long as the plug-in is loaded.
ExitCode guarded(const Options& options, const std::function<ExitCode()>& command) {
  try {
    return command();
  } catch (...) {
    return fail_with_current_exception(options.json);
  }
}

// Runs `command` with the log and the output as the user wants them.
ExitCode run_command(const Options& options, const std::function<ExitCode()>& command) {
  if (!options.log.empty()) {
    log_to_file(options.log);
    log_begin_of_run(utc_time() + " ndk-integrate " NDK_INTEGRATE_VERSION ": " +
                     options.command_line);
  }
  if (options.verbose) {
    log_to_standard_error();
  }
  if (options.quiet) {
    be_quiet();
  }
  const ExitCode result = guarded(options, command);
  if (!log_is_complete()) {
    complain("warning: the log file " + options.log + " could not be written whole");
  }
  return result;
}

ExitCode run_with_plugin(const Options& options,
                         const std::function<ExitCode(const Plugin&)>& command) {
  const Plugin plugin(options.plugin);
  return run_command(options, [&] { return command(plugin); });
}

Installation overridden_installation(const Options& options) {
  Installation installation = read_installation(options.installation);
  for (const std::string& setting : options.settings) {
    const std::size_t end = setting.find('=');
    if (end == std::string::npos) {
      throw UsageError("--set " + setting + ": expected NAME=VALUE");
    }
    override_session(installation, setting.substr(0, end), setting.substr(end + 1));
  }
  if (options.ndk) {
    if (options.ndk->empty()) {
      throw UsageError("--ndk: the directory's name is empty");
    }
    override_session(installation, "NDK_PATH", *options.ndk);
  }
  require_complete(installation);
  return installation;
}

ExitCode run_install(const Options& options) {
  const Installation installation = overridden_installation(options);
  return run_with_plugin(options, [&](const Plugin& plugin) {
    return install(plugin, installation, options.install);
  });
}

ExitCode run_undo(const Options& options) {
  const Installation installation = overridden_installation(options);
  return run_with_plugin(
      options, [&](const Plugin& plugin) { return undo(plugin, installation, options.undo); });
}

ExitCode run_status(const Options& options) {
  const Installation installation = overridden_installation(options);
  return run_with_plugin(options, [&](const Plugin& plugin) {
    return status(plugin, installation, options.status_json);
  });
}

ExitCode run_verify(const Options& options) {
  const Installation installation = overridden_installation(options);
  VerifyOptions verify_options = options.verify;
  const auto names_ndk = [](const std::string& setting) {
    return begins_with(setting, "NDK_PATH=");
  };
  verify_options.is_ndk_given =
      options.ndk || std::any_of(options.settings.begin(), options.settings.end(), names_ndk);
  verify_options.keep = absolute_path(working_directory(), options.verify.keep);
  require_keep_directory(verify_options);
  return run_with_plugin(
      options, [&](const Plugin& plugin) { return verify(plugin, installation, verify_options); });
}

ExitCode run_find(const Options& options) {
  require_understood(options.find);
  return run_with_plugin(options, [&](const Plugin& plugin) { return find(plugin, options.find); });
}

ExitCode run_check(const Options& options) {
  require_understood(options.check);
  return run_with_plugin(options,
                         [&](const Plugin& plugin) { return check(plugin, options.check); });
}

ExitCode run_release(const Options& options) {
  return run_command(options,
                     [&] { return convert_release(options.release, options.release_json); });
}

ExitCode run_check_host(const Options& options) {
  return run_command(options, [&] {
    return options.host_program.program ? check_host_program(options.host_program, options.plugin)
                                        : run_host_check(options.host_check, options.log);
  });
}

using Action = std::function<ExitCode()>;

// Options that may stand before or after the command.
void describe_common_options(CLI::App& app, Options& options) {
  app.set_version_flag("--version", "ndk-integrate " NDK_INTEGRATE_VERSION);
  app.add_option("--log", options.log, "Append the installation log to FILE")->option_text("FILE");
  app.add_option("--plugin", options.plugin, "Load the plug-in from FILE")->option_text("FILE");
  app.add_flag("-v", options.verbose, "Show the installation log on standard error");
  app.add_flag("-q", options.quiet, "Print the result and what went wrong, no steps");
}

CLI::Option* add_json_flag(CLI::App& command, bool& json) {
  return command.add_flag("--json", json, "Print one JSON object");
}

void add_supported_option(CLI::App& command, std::optional<std::string>& supported) {
  command
      .add_option(
          "--supported", supported,
          "Releases that are asked for, as r10e;r11c, r21*, r21..r25, r21+ or 27.0.12077973; any "
          "readable one without this")
      ->option_text("LIST");
}

void add_project_options(CLI::App& find, FindOptions& options) {
  CLI::Option* project =
      find.add_option("--project", options.project,
                      "Look for what a project pins in DIR and above, instead of from here")
          ->option_text("DIR");
  find.add_flag("--no-project", options.no_project, "Do not look for what a project pins")
      ->excludes(project);
}

void add_choosing_options(CLI::App& find, FindOptions& options) {
  find.add_flag("--newest", options.newest, "Take the newest good one, not the first");
  find.add_flag("--prerelease", options.prerelease, "Take a beta as readily as a release");
  find.add_flag("--read-only", options.read_only, "Accept an NDK that you cannot write to");
  CLI::Option* lock =
      find.add_option("--lock", options.lock, "Write down in FILE which NDK was found")
          ->option_text("FILE");
  find.add_option("--locked", options.locked, "Find exactly the NDK that FILE says")
      ->option_text("FILE")
      ->excludes(lock);
  find.add_option("--format", options.format,
                  "Print only this line for the NDK found, as '{path}\\t{release}\\t{revision}'")
      ->option_text("FORMAT");
}

void describe_find(CLI::App& app, Options& options, Action& action) {
  CLI::App* find = app.add_subcommand("find", "Find an NDK, and tell why the others are not good");
  find->add_option("--search", options.find.search,
                   "Look in these directories, in this order, instead of the usual places")
      ->option_text("DIR[;DIR...]")
      ->allow_extra_args(false);
  add_supported_option(*find, options.find.supported);
  find->add_flag("--all", options.find.all,
                 "Judge every directory, not only up to the first good one");
  add_project_options(*find, options.find);
  add_choosing_options(*find, options.find);
  add_json_flag(*find, options.find.json)->excludes("--format");
  describe_common_options(*find, options);
  find->callback([&] { action = [&] { return run_find(options); }; });
}

void describe_check(CLI::App& app, Options& options, Action& action) {
  CLI::App* check = app.add_subcommand("check", "Judge one directory");
  check->add_option("DIR", options.check.dir, "The directory")->option_text(" ")->required();
  add_supported_option(*check, options.check.supported);
  check->add_flag("--read-only", options.check.read_only, "Accept an NDK that you cannot write to");
  add_json_flag(*check, options.check.json);
  describe_common_options(*check, options);
  check->callback([&] { action = [&] { return run_check(options); }; });
}

void describe_release(CLI::App& app, Options& options, Action& action) {
  CLI::App* release =
      app.add_subcommand("release", "Convert a release, r21e, to its numbers, 21.4, and back");
  release->add_option("RELEASE", options.release, "The release or the revision")
      ->option_text(" ")
      ->required();
  add_json_flag(*release, options.release_json);
  describe_common_options(*release, options);
  release->callback([&] { action = [&] { return run_release(options); }; });
}

void add_installation(CLI::App& command, Options& options) {
  command
      .add_option("INSTALLATION.toml", options.installation,
                  "What an installer would know, as TOML")
      ->option_text(" ")
      ->required();
  command.add_option("--set", options.settings, "Override a session variable of the file")
      ->option_text("NAME=VALUE")
      ->allow_extra_args(false);
}

void add_keep_ndk_flag(CLI::App& command, bool& keep_ndk) {
  command.add_flag("--keep-ndk", keep_ndk,
                   "Do not take the compiler out of the NDK that it was installed for");
}

void describe_install(CLI::App& app, Options& options, Action& action) {
  CLI::App* install =
      app.add_subcommand("install", "Integrate an installed compiler package into an Android NDK");
  add_installation(*install, options);
  install->add_option("--ndk", options.ndk, "Use this NDK instead of looking for one")
      ->option_text("DIR");
  install->add_flag("--dry-run", options.install.dry_run, "Change nothing, show what would change");
  install->add_flag("--optional", options.install.optional,
                    "Where there is no NDK or no component for one, that is well: exit code 0");
  add_keep_ndk_flag(*install, options.install.keep_ndk);
  install
      ->add_flag("--verify", options.install.verify,
                 "Prove afterwards that the NDK builds with the compiler, which takes seconds")
      ->excludes("--dry-run");
  add_json_flag(*install, options.install.json);
  describe_common_options(*install, options);
  install->callback([&] { action = [&] { return run_install(options); }; });
}

void describe_undo(CLI::App& app, Options& options, Action& action) {
  CLI::App* undo = app.add_subcommand("undo", "Put back the compiler's files as they were");
  add_installation(*undo, options);
  undo->add_flag("--dry-run", options.undo.dry_run, "Change nothing, tell what would be put back");
  undo->add_option(
          "--force", options.undo.force,
          "Put FILE back although it was changed by someone else, and keep the change beside it")
      ->option_text("FILE")
      ->allow_extra_args(false);
  add_keep_ndk_flag(*undo, options.undo.keep_ndk);
  add_json_flag(*undo, options.undo.json);
  describe_common_options(*undo, options);
  undo->callback([&] { action = [&] { return run_undo(options); }; });
}

void describe_status(CLI::App& app, Options& options, Action& action) {
  CLI::App* status = app.add_subcommand("status", "Tell what is installed of a compiler package");
  add_installation(*status, options);
  add_json_flag(*status, options.status_json);
  describe_common_options(*status, options);
  status->callback([&] { action = [&] { return run_status(options); }; });
}

void describe_verify(CLI::App& app, Options& options, Action& action) {
  CLI::App* verify =
      app.add_subcommand("verify", "Prove that the NDK builds with the compiler's toolchains");
  add_installation(*verify, options);
  verify
      ->add_option("--ndk", options.ndk,
                   "Look at this NDK instead of the one that was installed into")
      ->option_text("DIR");
  verify->add_flag("--no-build", options.verify.no_build,
                   "Only look whether everything is in its place");
  verify
      ->add_option("--keep", options.verify.keep,
                   "Build in DIR, and keep the projects and their logs")
      ->option_text("DIR");
  add_json_flag(*verify, options.verify.json);
  describe_common_options(*verify, options);
  verify->callback([&] { action = [&] { return run_verify(options); }; });
}

void describe_check_host(CLI::App& app, Options& options, Action& action) {
  CLI::App* check_host =
      app.add_subcommand("check-host", "Check this host against what the plug-in relies on");
  CLI::Option* library =
      check_host->add_option("--library", options.host_check, "Load the host check from FILE")
          ->option_text("FILE");
  CLI::Option* program =
      check_host
          ->add_option("--program", options.host_program.program,
                       "Tell from the host's program FILE, without running it, whether the plug-in "
                       "will load in it")
          ->option_text("FILE")
          ->excludes(library);
  add_json_flag(*check_host, options.host_program.json)->needs(program);
  describe_common_options(*check_host, options);
  check_host->callback([&] { action = [&] { return run_check_host(options); }; });
}

// Prints the help that was asked for, or throws UsageError that tells what is wrong.
ExitCode explain_usage(const CLI::App& app, const CLI::ParseError& parse_error) {
  std::stringstream wrong;
  if (app.exit(parse_error, std::cout, wrong) == 0) {
    return kDone;
  }
  throw UsageError(usage_problem(app, parse_error));
}

ExitCode run(int argc, char** argv, Options& options) {
  Action action;
  CLI::App app("Runs the NDK integration of a compiler package without an installer.",
               "ndk-integrate");
  app.require_subcommand(1);
  app.formatter(std::make_shared<HelpFormatter>());
  describe_common_options(app, options);
  describe_find(app, options, action);
  describe_check(app, options, action);
  describe_release(app, options, action);
  describe_install(app, options, action);
  describe_undo(app, options, action);
  describe_status(app, options, action);
  describe_verify(app, options, action);
  describe_check_host(app, options, action);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& parse_error) {
    return explain_usage(app, parse_error);
  }
  return action();
}

// Takes the numbers of the standard streams that are closed, so that no file that is opened later
// gets one of them. What is written there still fails.
void open_standard_streams() {
  for (int number = 0; number <= STDERR_FILENO; ++number) {
    if (fcntl(number, F_GETFD) < 0) {
      [[maybe_unused]] const int lowest_free = open("/dev/null", O_RDONLY);
    }
  }
}

// True for a pipe or the like that nobody reads from any more.
bool has_no_reader(int output) {
  pollfd asked{output, 0, 0};
  return poll(&asked, 1, 0) == 1 && (asked.revents & (POLLERR | POLLHUP)) != 0;
}

// Ends the program: by the signal that asked it to end; where the reader of an output has gone
// away, by the signal that says so, unless that was ignored when the program began; or with
// `result`.
int end_program(ExitCode result, bool ignores_pipe_signal) {
  std::cout.flush();
  if (const int signal = interrupting_signal(); signal != 0) {
    end_by_signal(signal);
  }
  const bool is_reader_gone =
      (!std::cout && has_no_reader(STDOUT_FILENO)) || (!std::cerr && has_no_reader(STDERR_FILENO));
  if (is_reader_gone && !ignores_pipe_signal) {
    end_by_signal(SIGPIPE);
  }
  return std::cout ? result : fail("cannot write to standard output", kNotDone);
}

}  // namespace

}  // namespace ndk_integrate

using namespace ndk_integrate;  // NOLINT(google-build-using-namespace): this file is the program

int main(int argc, char** argv) {
  open_standard_streams();
  // What a script printed may be long. Each copy goes back to the system when it is freed.
  constexpr int kLong = 1 << 20;
  mallopt(M_MMAP_THRESHOLD, kLong);
  // A full disk and a reader that goes away are told by the calls that write, not by a signal.
  std::signal(SIGXFSZ, SIG_IGN);
  const bool ignores_pipe_signal = std::signal(SIGPIPE, SIG_IGN) == SIG_IGN;
  // Where it is ignored, the exit status of the script would be lost.
  std::signal(SIGCHLD, SIG_DFL);
  Options options;
  for (char** argument = argv; argument != argv + argc; ++argument) {
    options.command_line += (argument == argv ? "" : " ") + shell_quoted(*argument);
  }
  options.json = std::find(argv, argv + argc, std::string("--json")) != argv + argc;
  ExitCode result = kNotDone;
  try {
    result = run(argc, argv, options);
  } catch (...) {
    result = fail_with_current_exception(options.json);
  }
  return end_program(result, ignores_pipe_signal);
}
