#include "console_host/commands/usage.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <vector>

#include "console_host/base/similar_names.h"
#include "console_host/base/text.h"

namespace ndk_integrate {

namespace {

constexpr const char* kExitCodes =
    "Exit codes:\n"
    "  0  done\n"
    "  1  not done; the message says why\n"
    "  2  wrong usage or a wrong file\n"
    "  3  the plug-in cannot be loaded\n"
    "  4  nothing to do here: no NDK can be used, or no component asks for one\n";

// --- The help ---

std::size_t terminal_width() {
  constexpr std::size_t kUsual = 80;
  const char* columns = std::getenv("COLUMNS");
  if (columns != nullptr && is_number(columns)) {
    if (const auto width = std::strtoul(columns, nullptr, 10); width > 0) {
      return width;
    }
  }
  winsize size{};
  const bool is_terminal = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
  return is_terminal ? size.ws_col : kUsual;
}

// The column in which the text of `line` begins, behind the name that it explains.
std::size_t text_column(const std::string& line) {
  const std::size_t begin = std::min(line.find_first_not_of(' '), line.size());
  const std::size_t gap = line.find("  ", begin);
  return gap == std::string::npos ? begin : line.find_first_not_of(' ', gap);
}

// `line` in lines that are at most `width` long where words allow it, all after the first beginning
// in the text's column.
std::string wrapped(std::string line, std::size_t width) {
  const std::size_t column = std::min(text_column(line), line.size());
  std::string lines;
  while (line.size() > width) {
    std::size_t end = line.rfind(' ', width);
    if (end == std::string::npos || end <= column) {
      end = line.find(' ', column);
    }
    if (end == std::string::npos) {
      break;
    }
    lines += line.substr(0, end) + "\n";
    line = std::string(column, ' ') + line.substr(line.find_first_not_of(' ', end));
  }
  return lines + line + "\n";
}

// --- What is wrong ---

// The options that stand in the help of `app`, or its commands.
std::vector<std::string> names_of_options(const CLI::App& app) {
  std::vector<std::string> names;
  for (const CLI::Option* option : app.get_options()) {
    for (const std::string& name : option->get_lnames()) {
      names.push_back("--" + name);
    }
  }
  return names;
}

std::vector<std::string> names_of_commands(const CLI::App& app) {
  std::vector<std::string> names;
  for (const CLI::App* command : app.get_subcommands(nullptr)) {
    names.push_back(command->get_name());
  }
  return names;
}

// What is wrong with `extras`, the arguments that nothing takes.
std::string not_expected(const CLI::App& app, const std::vector<std::string>& extras) {
  const std::vector<CLI::App*> commands = app.get_subcommands();
  const std::string& argument = extras.front();
  if (argument == "--" && !commands.empty() && extras.size() > 1) {
    return "unexpected argument '" + extras[1] + "'";  // behind "--" nothing is an option
  }
  if (argument.size() > 1 && argument[0] == '-') {
    const std::string name = argument.substr(0, argument.find('='));
    const CLI::App& command = commands.empty() ? app : *commands.front();
    return "unknown option '" + name + "'" + did_you_mean(name, names_of_options(command));
  }
  if (commands.empty()) {
    return "unknown command '" + argument + "'" + did_you_mean(argument, names_of_commands(app));
  }
  return "unexpected argument '" + argument + "'";
}

// `text` with the words of the command-line library in those that the help uses.
std::string in_our_words(std::string text) {
  constexpr const char* kMissingValue = ": 1 required TEXT missing";
  constexpr const char* kNotForFlag = "Could not convert: ";
  constexpr const char* kTwice = ": At Most 1 required but received ";
  if (const std::size_t end = text.find(kMissingValue); end != std::string::npos) {
    return text.substr(0, end) + " needs a value";
  }
  if (begins_with(text, kNotForFlag)) {
    const std::size_t begin = std::string(kNotForFlag).size();
    return text.substr(begin, text.find(" = ", begin) - begin) + " takes no value";
  }
  if (const std::size_t end = text.find(kTwice); end != std::string::npos) {
    return text.substr(0, end) + " may be given only once";
  }
  text = replace_all(text, "A subcommand is required", "no command is given").text;
  text = replace_all(text, " is required", " is missing").text;
  text = replace_all(text, " excludes ", " cannot stand together with ").text;
  return replace_all(text, " requires ", " needs ").text;
}

}  // namespace

HelpFormatter::HelpFormatter() : width_(terminal_width()) {
  constexpr std::size_t kNames = 30;  // the column of their texts
  constexpr std::size_t kShareOfNames = 3;
  column_width(std::min(kNames, width_ / kShareOfNames));
  label("SUBCOMMAND", "COMMAND");
}

std::string HelpFormatter::make_option(const CLI::Option* option, bool is_positional) const {
  const std::string value = trimmed(option->get_option_text());
  return line_of(make_option_name(option, is_positional) + (value.empty() ? "" : " " + value),
                 option->get_description());
}

std::string HelpFormatter::make_subcommand(const CLI::App* command) const {
  return line_of(command->get_name(), command->get_description());
}

// At least two blanks part a name from its text, which has a line of its own where that needs one.
std::string HelpFormatter::line_of(const std::string& name, const std::string& text) const {
  constexpr std::size_t kGap = 2;
  const std::string begin = std::string(kGap, ' ') + name;
  const std::size_t column = get_column_width();
  const bool fits = begin.size() + kGap <= column;
  return begin +
         (fits ? std::string(column - begin.size(), ' ') : "\n" + std::string(column, ' ')) + text +
         "\n";
}

std::string HelpFormatter::make_help(const CLI::App* app, std::string name,
                                     CLI::AppFormatMode mode) const {
  std::istringstream help(Formatter::make_help(app, std::move(name), mode) + kExitCodes);
  std::string text;
  for (std::string line; std::getline(help, line);) {
    text += wrapped(line, width_);
  }
  return text;
}

std::string usage_problem(const CLI::App& app, const CLI::ParseError& parse_error) {
  const std::vector<CLI::App*> commands = app.get_subcommands();
  std::vector<std::string> extras = app.remaining(true);
  if (!commands.empty() && extras == std::vector<std::string>{"--"}) {
    extras.clear();  // that is well; what should stand behind it is missing
  }
  const std::string what =
      extras.empty() ? in_our_words(parse_error.what()) : not_expected(app, extras);
  return what + "; see ndk-integrate " +
         (commands.empty() ? "" : commands.front()->get_name() + " ") + "--help";
}

}  // namespace ndk_integrate
