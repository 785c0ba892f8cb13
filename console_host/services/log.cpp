#include "console_host/services/log.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <utility>

#include "console_host/base/errors.h"
#include "console_host/base/escaping.h"
#include "console_host/base/file_descriptor.h"
#include "console_host/services/service_observer.h"
#include "host/host.h"

namespace ndk_integrate {

namespace {

// print_log and error get no session, so the log is the one of the process.
struct Log {
  FileDescriptor file{-1};
  bool is_complete = true;
  bool on_standard_error = false;
  bool on_standard_output = false;
  HeldLog* held = nullptr;
};

Log& the_log() {
  static Log log;
  return log;
}

void write_to_file(const std::string& line) {
  Log& log = the_log();
  if (log.file.is_open()) {
    const ssize_t size = ::write(log.file.number(), line.data(), line.size());
    log.is_complete = log.is_complete && size == static_cast<ssize_t>(line.size());
  }
}

void write(const std::string& line) {
  const Log& log = the_log();
  write_to_file(line);
  if (log.on_standard_error) {
    std::cerr << line << std::flush;
  }
  if (log.on_standard_output) {
    std::cout << line << std::flush;
  }
}

// A long line, as of what a script printed, is written in pieces: escaped it may be several times
// as long.
void write_line(const std::string& text) {
  std::size_t begin = 0;
  for (; text.size() - begin > kPiece; begin = end_of_piece(text, begin)) {
    write(one_line(text.substr(begin, end_of_piece(text, begin) - begin)));
  }
  write(one_line(text.substr(begin)) + "\n");
}

// False when nobody is to see a line, so that none need be made.
bool is_wanted() {
  const Log& log = the_log();
  return log.file.is_open() || log.on_standard_error || log.on_standard_output ||
         log.held != nullptr;
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

void add_to_log(std::string text) {
  const ServiceObserver* observer = service_observer();
  const std::string line =
      observer == nullptr ? std::move(text) : observer->log_line(std::move(text));
  if (HeldLog* held = the_log().held) {
    held->lines_.push_back(line);
  } else {
    write_line(line);
  }
}

void log_to_file(const std::string& file) {
  constexpr mode_t kUsual = 0666;
  the_log().file =
      FileDescriptor(open(file.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, kUsual));
  if (!the_log().file.is_open()) {
    throw UsageError("cannot open the log file " + file + ": " + std::strerror(errno));
  }
}

void log_begin_of_run(const std::string& line) { write_to_file(one_line(line) + "\n"); }

void log_to_standard_error() { the_log().on_standard_error = true; }

void log_to_standard_output() { the_log().on_standard_output = true; }

bool log_is_complete() { return the_log().is_complete; }

HeldLog::HeldLog() : outer_(std::exchange(the_log().held, this)) {}

HeldLog::~HeldLog() { the_log().held = outer_; }

void HeldLog::release() {
  for (const std::string& line : std::exchange(lines_, {})) {
    if (outer_ == nullptr) {
      write_line(line);
    } else {
      outer_->lines_.push_back(line);
    }
  }
}

}  // namespace ndk_integrate

void print_log(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  if (ndk_integrate::is_wanted()) {
    ndk_integrate::add_to_log(ndk_integrate::formatted(format, arguments));
  }
  va_end(arguments);
}

// The plug-in reports one thing this way: a file that it was to patch and could not open.
void error(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  ndk_integrate::add_to_log("ERROR: " + ndk_integrate::formatted(format, arguments));
  va_end(arguments);
  if (ndk_integrate::ServiceObserver* observer = ndk_integrate::service_observer()) {
    observer->open_failed();
  }
}
