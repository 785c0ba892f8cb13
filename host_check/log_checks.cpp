// Checks of the log. A library cannot read it, so all that these see is that the calls return; the
// lines are there for a person to look at.
#include <string>
#include <vector>

#include <cstdlib>

#include "host_check/checks.h"
#include "host_check/scratch.h"
#include "host_check/verdict.h"

namespace host_check {

std::vector<Check> log_checks() {
  return {
      {"log-without-arguments",
       "print_log returns when it gets a format without arguments; whether the line is in the log is for you to look at.",
       {},
       [](session_t* /*session*/) { print_log("host check, a test line: without arguments"); }},
      {"log-percent-in-argument",
       "print_log returns when an argument holds percent signs; whether they stand in the log as they are is for you to look at.",
       {},
       [](session_t* /*session*/) {
         const std::string argument = "100% %s %d %n %%";
         print_log("host check, a test line: '%s' and '%s'", argument.c_str(), "%");
       }},
      // What a script printed is one argument, whatever its length.
      {"log-long-argument",
       "print_log returns when an argument has 10,000 bytes, as a script's output may; whether it is whole in the log is for you to look at.",
       {},
       [](session_t* /*session*/) {
         const std::string argument = "10,000 bytes, " + std::string(9982, '.') + " end";
         print_log("host check, a test line: '%s'", argument.c_str());
       }},
      {"error-returns",
       "error returns to its caller: it shows or logs its text, and ends nothing.",
       {},
       [](session_t* /*session*/) {
         error("host check, a test of error(), nothing is wrong: %s", "100% %s");
       }},
      {"log-lines",
       "Every line that print_log wrote is in the log at once, as a line of its own; a note where one is not, and skipped unless the environment variable HOST_CHECK_LOG names the log's file.",
       {"log-without-arguments"},
       [](session_t* /*session*/) {
         const char* log = std::getenv("HOST_CHECK_LOG");
         if (log == nullptr || *log == '\0') {
           throw Skipped("HOST_CHECK_LOG does not name the log's file");
         }
         const std::string text = "host check, a test line: looked for in the log";
         print_log("%s", text.c_str());
         const std::string content = read_file(log);
         const std::size_t at = content.rfind(text);
         if (at == std::string::npos || content.compare(at + text.size(), 1, "\n") != 0) {
           throw Noted(
               "the line " + quoted(text) + " is not in " + quoted(std::string(log)) +
               " when print_log has returned: a log that is not flushed loses what led to a crash");
         }
       }},
  };
}

}  // namespace host_check
