// The program ndk-integrate: a small installer host for the command line. This file only parses the
// command line and dispatches.
#include <CLI/CLI.hpp>
#include <csignal>
#include <iostream>

#include "console_host/errors.h"
#include "console_host/install.h"
#include "console_host/installation.h"
#include "console_host/log.h"
#include "console_host/plugin.h"

namespace {

struct Options {
  std::string installation;
  std::string log;
  std::string plugin;
  bool verbose = false;
};

ExitCode complain(const std::string& what, ExitCode code) {
  std::cerr << "ndk-integrate: " << one_line(what) << std::endl;
  return code;
}

// Runs `command`, and ends it where an exception left the plug-in. Its type may be the plug-in's
// own, so this has to happen as long as the plug-in is loaded.
ExitCode guarded(const std::function<ExitCode()>& command) {
  try {
    return command();
  } catch (const std::exception& failure) {
    return complain(std::string("not done: ") + failure.what(), kNotDone);
  } catch (...) {
    return complain("not done: the plug-in threw an exception of an unknown type", kNotDone);
  }
}

ExitCode run_install(const Options& options) {
  const Installation installation = read_installation(options.installation);
  const Plugin plugin(options.plugin);
  if (!options.log.empty()) {
    log_to_file(options.log);
  }
  if (options.verbose) {
    log_to_standard_error();
  }
  const ExitCode result = guarded([&] { return install(plugin, installation); });
  if (!log_is_complete()) {
    std::cerr << "ndk-integrate: warning: the log file " << options.log
              << " could not be written whole" << std::endl;
  }
  return result;
}

// Options that may stand before or after the command.
void describe_common_options(CLI::App& app, Options& options) {
  app.set_version_flag("--version", "ndk-integrate " NDK_INTEGRATE_VERSION);
  app.add_option("--log", options.log, "Append the installation log to FILE")->option_text("FILE");
  app.add_option("--plugin", options.plugin, "Load the plug-in from FILE")->option_text("FILE");
  app.add_flag("-v", options.verbose, "Show the installation log on standard error");
}

// The command line's shape; the chosen command's action is left in `action`.
void describe(CLI::App& app, Options& options, std::function<ExitCode()>& action) {
  app.require_subcommand(1);
  describe_common_options(app, options);
  CLI::App* install =
      app.add_subcommand("install", "Integrate an installed compiler package into an Android NDK");
  describe_common_options(*install, options);
  install->add_option("installation", options.installation, "What an installer would know, as TOML")
      ->option_text("INSTALLATION.toml")
      ->required();
  install->callback([&] { action = [&] { return run_install(options); }; });
}

ExitCode run(int argc, char** argv) {
  Options options;
  std::function<ExitCode()> action;
  CLI::App app("Runs the NDK integration of a compiler package without an installer.",
               "ndk-integrate");
  describe(app, options, action);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& parse_error) {
    if (app.get_subcommands().empty() && !app.remaining().empty()) {
      return complain("unknown command '" + app.remaining().front() + "'; see ndk-integrate --help",
                      kWrongUsage);
    }
    return app.exit(parse_error) == 0 ? kDone : kWrongUsage;
  }
  return action();
}

}  // namespace

int main(int argc, char** argv) {
  // Where it is ignored, the exit status of the script would be lost.
  std::signal(SIGCHLD, SIG_DFL);
  try {
    return run(argc, argv);
  } catch (const UsageError& wrong) {
    return complain(wrong.what(), kWrongUsage);
  } catch (const PluginError& missing) {
    return complain(missing.what(), kNoPlugin);
  } catch (const std::exception& failure) {
    return complain(std::string("not done: ") + failure.what(), kNotDone);
  }
}
