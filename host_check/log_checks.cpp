// Checks of the log. A library cannot read it, so all that these see is that the calls return; the
// lines are there for a person to look at.
#include <string>
#include <vector>

#include "host_check/checks.h"

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
  };
}

}  // namespace host_check
