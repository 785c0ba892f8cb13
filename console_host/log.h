// The installation log: where the lines of print_log and error go.
#ifndef CONSOLE_HOST_LOG_H
#define CONSOLE_HOST_LOG_H

#include <string>

// From now on appends the log to `file`, which is made when missing. Throws UsageError when it
// cannot be opened.
void log_to_file(const std::string& file);

// From now on shows the log on standard error.
void log_to_standard_error();

// From now on shows the log on standard output.
void log_to_standard_output();

// True when every line so far got into the log file whole.
bool log_is_complete();

// While one of these lives, nothing is logged: for questions to the plug-in that are no step of an
// installation.
class LogPause {
 public:
  LogPause();
  ~LogPause();
  LogPause(const LogPause&) = delete;
  LogPause& operator=(const LogPause&) = delete;
};

// `text` with every line end and other control character written as "\n", "\r", "\t" or "\x1b", so
// that it stays one line and does nothing to a terminal.
std::string one_line(const std::string& text);

// True for line ends and the other control characters of ASCII.
bool is_control(char c);

#endif
