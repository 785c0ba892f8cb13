// The installation log: where the lines of print_log and error go.
#ifndef CONSOLE_HOST_SERVICES_LOG_H
#define CONSOLE_HOST_SERVICES_LOG_H

#include <string>
#include <vector>

namespace ndk_integrate {

// From now on appends the log to `file`, which is made when missing. Throws UsageError when it
// cannot be opened.
void log_to_file(const std::string& file);

// A line in the file alone, that a run begins with.
void log_begin_of_run(const std::string& line);

// From now on shows the log on standard error.
void log_to_standard_error();

// From now on shows the log on standard output.
void log_to_standard_output();

// True when every line so far got into the log file whole.
bool log_is_complete();

// A line of the host's own. Line ends and control characters in it are escaped.
void add_to_log(std::string text);

// While one of these lives, lines are held back. They are lost with it unless release() lets them
// through: for runs of the plug-in that are not a step of an installation.
class HeldLog {
 public:
  HeldLog();
  ~HeldLog();
  HeldLog(const HeldLog&) = delete;
  HeldLog& operator=(const HeldLog&) = delete;

  // Lets the lines that were held so far into the log.
  void release();

 private:
  friend void add_to_log(std::string text);

  HeldLog* outer_;  // the one that this one stands in for
  std::vector<std::string> lines_;
};

}  // namespace ndk_integrate

#endif
