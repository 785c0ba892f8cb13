// The program ndk-integrate: a small installer host for the command line. This file only parses the
// command line and dispatches.
#include <CLI/CLI.hpp>
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

ExitCode run_install(const Options& options) {
  const Installation installation = read_installation(options.installation);
  const Plugin plugin(options.plugin);
  if (!options.log.empty()) {
    log_to_file(options.log);
  }
  if (options.verbose) {
    log_to_standard_error();
  }
  const ExitCode result = install(plugin, installation);
  if (!log_is_complete()) {
    std::cerr << "ndk-integrate: warning: the log file " << options.log
              << " could not be written whole" << std::endl;
  }
  return result;
}

// The command line's shape; the chosen command's action is left in `action`.
void describe(CLI::App& app, Options& options, std::function<ExitCode()>& action) {
  app.require_subcommand(1);
  app.fallthrough();  // common options may stand before or after the command
  app.set_version_flag("--version", "ndk-integrate " NDK_INTEGRATE_VERSION);
  app.add_option("--log", options.log, "Append the installation log to FILE")->option_text("FILE");
  app.add_option("--plugin", options.plugin, "Load the plug-in from FILE")->option_text("FILE");
  app.add_flag("-v", options.verbose, "Show the installation log on standard error");

  CLI::App* install =
      app.add_subcommand("install", "Integrate an installed compiler package into an Android NDK");
  install->add_option("installation", options.installation, "What an installer would know, as TOML")
      ->option_text("INSTALLATION.toml")
      ->required();
  install->callback([&] { action = [&] { return run_install(options); }; });
}

ExitCode complain(const std::string& what, ExitCode code) {
  std::cerr << "ndk-integrate: " << one_line(what) << std::endl;
  return code;
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
    return app.exit(parse_error) == 0 ? kDone : kWrongUsage;
  }
  return action();
}

}  // namespace

int main(int argc, char** argv) {
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
