#include "console_host/commands/script_teller.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <iostream>

#include "console_host/base/escaping.h"
#include "console_host/base/interruption.h"
#include "console_host/commands/output.h"

namespace ndk_integrate {

namespace {

constexpr const char* kPrinted = "script printed: ";
constexpr std::size_t kLongestLine = 65536;  // a longer one is told in pieces

std::string told(const std::string& line) { return kPrinted + one_line(line) + "\n"; }

// True when standard output takes something at once, or fails at once, within a moment.
bool is_output_ready() {
  constexpr int kMoment = 100;  // milliseconds
  pollfd asked{STDOUT_FILENO, POLLOUT, 0};
  return poll(&asked, 1, kMoment) != 0;
}

// Where the piece of `text` ends that begins at `begin` and that a pipe takes which takes anything;
// at the end of a line, if one ends there.
std::size_t end_of_lines(const std::string& text, std::size_t begin) {
  const std::size_t most = begin + PIPE_BUF;
  const std::size_t end = most < text.size() ? text.rfind('\n', most - 1) : std::string::npos;
  return end == std::string::npos || end < begin ? std::min(most, text.size()) : end + 1;
}

// Prints `text`. What asks the program to end does not wait for a reader that takes nothing: the
// rest of the text is then left out.
void print_while_it_is_taken(const std::string& text) {
  for (std::size_t begin = 0; begin < text.size();) {
    while (!is_output_ready()) {
      if (is_asked_to_end()) {
        return;
      }
    }
    const std::size_t end = end_of_lines(text, begin);
    print(text.substr(begin, end - begin));
    begin = end;
  }
}

}  // namespace

ScriptTeller::ScriptTeller() : is_terminal_(isatty(STDERR_FILENO) == 1) {}

void ScriptTeller::begins(const std::string& command) { say("script: " + command); }

void ScriptTeller::printed(std::string_view text) {
  if (is_quiet()) {
    return;
  }
  end_notice();
  std::string lines;  // printed at once: there may be thousands
  for (const char c : text) {
    if (c == '\n' || line_.size() >= kLongestLine) {
      lines += told(line_);
      line_.clear();
    }
    if (c != '\n') {
      line_ += c;
    }
  }
  print_while_it_is_taken(lines);
}

void ScriptTeller::is_silent(std::chrono::milliseconds time) {
  if (is_quiet() || !is_terminal_) {
    return;
  }
  end_notice();
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time).count();
  const std::string notice = "the script is still running, " + std::to_string(seconds) + " s";
  std::cerr << notice << std::flush;
  notice_ = notice.size();
}

void ScriptTeller::ended() {
  end_notice();
  if (!line_.empty()) {
    print_while_it_is_taken(told(line_));
    line_.clear();
  }
}

// The notice makes room for what is told next.
void ScriptTeller::end_notice() {
  if (notice_ > 0) {
    std::cerr << '\r' << std::string(notice_, ' ') << '\r' << std::flush;
    notice_ = 0;
  }
}

void tell_end_of_script(const ScriptRun& script) {
  if (script.exit_status == 0) {
    return;
  }
  say("script exit status: " + std::to_string(script.exit_status));
  std::size_t begin = is_quiet() ? 0 : script.output.size();
  while (begin < script.output.size()) {
    const std::size_t end = std::min(script.output.find('\n', begin), script.output.size());
    complain(kPrinted + script.output.substr(begin, end - begin));
    begin = end + 1;
  }
}

}  // namespace ndk_integrate
