// How the command line is explained: the help, and what is said of a command line that is wrong.
#ifndef CONSOLE_HOST_COMMANDS_USAGE_H
#define CONSOLE_HOST_COMMANDS_USAGE_H

#include <CLI/CLI.hpp>
#include <string>

namespace ndk_integrate {

// Lays out the help of a command, as wide as the terminal is, with the exit codes at its end.
class HelpFormatter : public CLI::Formatter {
 public:
  HelpFormatter();
  std::string make_help(const CLI::App* app, std::string name,
                        CLI::AppFormatMode mode) const override;

  std::string make_option(const CLI::Option* option, bool is_positional) const override;
  std::string make_subcommand(const CLI::App* command) const override;

 private:
  std::string line_of(const std::string& name, const std::string& text) const;

  std::size_t width_;
};

// What is wrong with the command line that `app` could not parse, as a sentence.
std::string usage_problem(const CLI::App& app, const CLI::ParseError& parse_error);

}  // namespace ndk_integrate

#endif
