// The program ndk-integrate: a small installer host for the command line. This file only parses the
// command line and dispatches.
#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <iostream>
#include <sstream>

#include "console_host/base/errors.h"
#include "console_host/base/escaping.h"
#include "console_host/commands/check_host.h"
#include "console_host/commands/check_host_program.h"
#include "console_host/commands/find.h"
#include "console_host/commands/install.h"
#include "console_host/commands/output.h"
#include "console_host/commands/undo.h"
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
  bool undo_json = false;
  std::string host_check;
  HostProgramOptions host_program;
  FindOptions find;
  CheckOptions check;
};

ExitCode fail(const std::string& what, ExitCode code) {
  complain(what);
  return code;
}

// Runs `command`, and ends it where an exception left the plug-in. Its type may be the plug-in's
// own, so this has to happen as long as the plug-in is loaded.
ExitCode guarded(const std::function<ExitCode()>& command) {
  try {
    return command();
  } catch (const PluginError&) {
    throw;
  } catch (const std::exception& failure) {
    return fail(std::string("not done: ") + failure.what(), kNotDone);
  } catch (...) {
    return fail(std::string("not done: ") + describe_current_exception(), kNotDone);
  }
}

// Runs `command` with the log and the output as the user wants them.
ExitCode run_command(const Options& options, const std::function<ExitCode()>& command) {
  if (!options.log.empty()) {
    log_to_file(options.log);
  }
  if (options.verbose) {
    log_to_standard_error();
  }
  if (options.quiet) {
    be_quiet();
  }
  const ExitCode result = guarded(command);
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
  return installation;
}

ExitCode run_install(const Options& options) {
  const Installation installation = overridden_installation(options);
  return run_with_plugin(options, [&](const Plugin& plugin) {
    return install(plugin, installation, options.install);
  });
}

ExitCode run_undo(const Options& options) {
  const Installation installation = read_installation(options.installation);
  return run_with_plugin(
      options, [&](const Plugin& plugin) { return undo(plugin, installation, options.undo_json); });
}

ExitCode run_find(const Options& options) {
  require_directories(options.find);
  return run_with_plugin(options, [&](const Plugin& plugin) { return find(plugin, options.find); });
}

ExitCode run_check(const Options& options) {
  if (options.check.dir.empty()) {
    throw UsageError("check: the directory's name is empty");
  }
  return run_with_plugin(options,
                         [&](const Plugin& plugin) { return check(plugin, options.check); });
}

ExitCode run_check_host(const Options& options) {
  if (!options.host_program.program) {
    return run_command(options, [&] { return run_host_check(options.host_check, options.log); });
  }
  if (options.quiet) {
    be_quiet();
  }
  return check_host_program(options.host_program, options.plugin);
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

void add_supported_option(CLI::App& command, std::optional<std::string>& supported) {
  command
      .add_option("--supported", supported,
                  "Releases that are supported, as r10e;r11c; any readable one without this")
      ->option_text("LIST");
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
  find->add_flag("--json", options.find.json, "Print one JSON object");
  describe_common_options(*find, options);
  find->callback([&] { action = [&] { return run_find(options); }; });
}

void describe_check(CLI::App& app, Options& options, Action& action) {
  CLI::App* check = app.add_subcommand("check", "Judge one directory");
  check->add_option("DIR", options.check.dir, "The directory")->option_text(" ")->required();
  add_supported_option(*check, options.check.supported);
  check->add_flag("--json", options.check.json, "Print one JSON object");
  describe_common_options(*check, options);
  check->callback([&] { action = [&] { return run_check(options); }; });
}

void add_installation(CLI::App& command, Options& options) {
  command
      .add_option("INSTALLATION.toml", options.installation,
                  "What an installer would know, as TOML")
      ->option_text(" ")
      ->required();
}

void describe_install(CLI::App& app, Options& options, Action& action) {
  CLI::App* install =
      app.add_subcommand("install", "Integrate an installed compiler package into an Android NDK");
  add_installation(*install, options);
  install->add_option("--ndk", options.ndk, "Use this NDK instead of looking for one")
      ->option_text("DIR");
  install->add_option("--set", options.settings, "Override a session variable of the file")
      ->option_text("NAME=VALUE")
      ->allow_extra_args(false);
  install->add_flag("--dry-run", options.install.dry_run, "Change nothing, show what would change");
  install->add_flag("--json", options.install.json, "Print one JSON object");
  describe_common_options(*install, options);
  install->callback([&] { action = [&] { return run_install(options); }; });
}

void describe_undo(CLI::App& app, Options& options, Action& action) {
  CLI::App* undo = app.add_subcommand("undo", "Put back the compiler's files as they were");
  add_installation(*undo, options);
  undo->add_flag("--json", options.undo_json, "Print one JSON object");
  describe_common_options(*undo, options);
  undo->callback([&] { action = [&] { return run_undo(options); }; });
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
  check_host->add_flag("--json", options.host_program.json, "Print one JSON object")
      ->needs(program);
  describe_common_options(*check_host, options);
  check_host->callback([&] { action = [&] { return run_check_host(options); }; });
}

// Prints the help that was asked for, or what is wrong.
ExitCode explain_usage(const CLI::App& app, const CLI::ParseError& parse_error) {
  std::stringstream wrong;
  if (app.exit(parse_error, std::cout, wrong) == 0) {
    return kDone;
  }
  for (std::string line; std::getline(wrong, line);) {
    std::cerr << one_line(line) << std::endl;
  }
  return kWrongUsage;
}

ExitCode run(int argc, char** argv) {
  Options options;
  Action action;
  CLI::App app("Runs the NDK integration of a compiler package without an installer.",
               "ndk-integrate");
  app.require_subcommand(1);
  describe_common_options(app, options);
  describe_find(app, options, action);
  describe_check(app, options, action);
  describe_install(app, options, action);
  describe_undo(app, options, action);
  describe_check_host(app, options, action);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& parse_error) {
    if (app.get_subcommands().empty() && !app.remaining().empty()) {
      return fail("unknown command '" + app.remaining().front() + "'; see ndk-integrate --help",
                  kWrongUsage);
    }
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

}  // namespace

}  // namespace ndk_integrate

using namespace ndk_integrate;  // NOLINT(google-build-using-namespace): this file is the program

int main(int argc, char** argv) {
  open_standard_streams();
  // A full disk and a reader that goes away are told by the calls that write, not by a signal.
  std::signal(SIGXFSZ, SIG_IGN);
  std::signal(SIGPIPE, SIG_IGN);
  // Where it is ignored, the exit status of the script would be lost.
  std::signal(SIGCHLD, SIG_DFL);
  try {
    const ExitCode result = run(argc, argv);
    return std::cout.flush() ? result : fail("cannot write to standard output", kNotDone);
  } catch (const UsageError& wrong) {
    return fail(wrong.what(), kWrongUsage);
  } catch (const PluginError& missing) {
    return fail(missing.what(), kNoPlugin);
  } catch (const std::exception& failure) {
    return fail(std::string("not done: ") + failure.what(), kNotDone);
  }
}
