#include "console_host/log.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <iostream>

#include "console_host/errors.h"
#include "console_host/file_descriptor.h"
#include "console_host/integration.h"
#include "host/host.h"

namespace {

// print_log and error get no session, so the log is the one of the process.
struct Log {
  FileDescriptor file{-1};
  bool is_complete = true;
  bool on_standard_error = false;
  bool on_standard_output = false;
  int pauses = 0;
};

Log& the_log() {
  static Log log;
  return log;
}

void write_line(const std::string& text) {
  Log& log = the_log();
  if (log.pauses > 0) {
    return;
  }
  const std::string line = one_line(text) + "\n";
  if (log.file.is_open()) {
    const ssize_t size = write(log.file.number(), line.data(), line.size());
    log.is_complete = log.is_complete && size == static_cast<ssize_t>(line.size());
  }
  if (log.on_standard_error) {
    std::cerr << line << std::flush;
  }
  if (log.on_standard_output) {
    std::cout << line << std::flush;
  }
}

std::string formatted(const char* format, va_list arguments) {
  va_list again;
  va_copy(again, arguments);
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): va_copy has initialised it
  const int size = std::vsnprintf(nullptr, 0, format, again);
  va_end(again);
  if (size < 0) {
    return format;
  }
  std::string text(static_cast<std::size_t>(size) + 1, '\0');
  std::vsnprintf(text.data(), text.size(), format, arguments);
  text.pop_back();  // the NUL that vsnprintf adds
  return text;
}

}  // namespace

void log_to_file(const std::string& file) {
  constexpr mode_t kUsual = 0666;
  the_log().file =
      FileDescriptor(open(file.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, kUsual));
  if (!the_log().file.is_open()) {
    throw UsageError("cannot open the log file " + file + ": " + std::strerror(errno));
  }
}

void log_to_standard_error() { the_log().on_standard_error = true; }

void log_to_standard_output() { the_log().on_standard_output = true; }

bool log_is_complete() { return the_log().is_complete; }

LogPause::LogPause() { ++the_log().pauses; }
LogPause::~LogPause() { --the_log().pauses; }

bool is_control(char c) {
  const auto code = static_cast<unsigned char>(c);
  return code < 0x20 || code == 0x7f;
}

// True when a control character beyond ASCII, in UTF-8, begins at `text`[i].
static bool is_wide_control(const std::string& text, std::size_t i) {
  const auto code = [&](std::size_t at) {
    return at < text.size() ? static_cast<unsigned char>(text[at]) : 0U;
  };
  return code(i) == 0xc2 && code(i + 1) >= 0x80 && code(i + 1) < 0xa0;
}

static std::string escaped(char c) {
  std::array<char, 5> escape{};
  std::snprintf(escape.data(), escape.size(), "\\x%02x", static_cast<unsigned char>(c));
  return escape.data();
}

std::string one_line(const std::string& text) {
  std::string line;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '\n') {
      line += "\\n";
    } else if (c == '\r') {
      line += "\\r";
    } else if (c == '\t') {
      line += "\\t";
    } else if (is_control(c)) {
      line += escaped(c);
    } else if (is_wide_control(text, i)) {
      line += escaped(c) + escaped(text[++i]);
    } else {
      line += c;
    }
  }
  return line;
}

void print_log(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  write_line(formatted(format, arguments));
  va_end(arguments);
}

// The plug-in reports one thing this way: a file that it was to patch and could not open.
void error(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  write_line("ERROR: " + formatted(format, arguments));
  va_end(arguments);
  if (Integration* integration = Integration::current()) {
    integration->open_failed();
  }
}
