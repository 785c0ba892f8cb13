#include "console_host/log.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>

#include "console_host/errors.h"
#include "console_host/integration_record.h"
#include "host/host.h"

namespace {

// print_log and error get no session, so the log is the one of the process.
struct Log {
  std::ofstream file;
  bool on_standard_error = false;
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
    log.file << line << std::flush;
  }
  if (log.on_standard_error) {
    std::cerr << line << std::flush;
  }
}

std::string formatted(const char* format, va_list arguments) {
  va_list again;
  va_copy(again, arguments);
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
  the_log().file.open(file, std::ios::app | std::ios::binary);
  if (!the_log().file) {
    throw UsageError("cannot open the log file " + file + ": " + std::strerror(errno));
  }
}

void log_to_standard_error() { the_log().on_standard_error = true; }

bool log_is_complete() { return the_log().file.good(); }

LogPause::LogPause() { ++the_log().pauses; }
LogPause::~LogPause() { --the_log().pauses; }

std::string one_line(const std::string& text) {
  std::string line;
  for (const char c : text) {
    const auto code = static_cast<unsigned char>(c);
    if (c == '\n') {
      line += "\\n";
    } else if (c == '\r') {
      line += "\\r";
    } else if (c == '\t') {
      line += "\\t";
    } else if (code < 0x20 || code == 0x7f) {
      std::array<char, 5> escape{};
      std::snprintf(escape.data(), escape.size(), "\\x%02x", code);
      line += escape.data();
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
  if (IntegrationRecord* record = IntegrationRecord::current()) {
    record->failed();
  }
}
