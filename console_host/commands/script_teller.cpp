#include "console_host/commands/script_teller.h"

#include <unistd.h>

#include <iostream>

#include "console_host/base/escaping.h"
#include "console_host/commands/output.h"

namespace ndk_integrate {

namespace {

constexpr const char* kPrinted = "script printed: ";
constexpr std::size_t kLongestLine = 65536;  // a longer one is told in pieces

std::string told(const std::string& line) { return kPrinted + one_line(line) + "\n"; }

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
  print(lines);
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
    print(told(line_));
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
