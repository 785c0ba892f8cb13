// Checks of the log. A library cannot read it, so all that these see is that the calls return; the
// lines are there for a person to look at.
#include <string>

#include "host_check/checks.h"

void log_without_arguments(session_t* /*session*/) {
  print_log("host check, a test line: without arguments");
}

void log_percent_in_argument(session_t* /*session*/) {
  const std::string argument = "100% %s %d %n %%";
  print_log("host check, a test line: '%s' and '%s'", argument.c_str(), "%");
}

// What a script printed is one argument, whatever its length.
void log_long_argument(session_t* /*session*/) {
  const std::string argument = "10,000 bytes, " + std::string(9982, '.') + " end";
  print_log("host check, a test line: '%s'", argument.c_str());
}

void error_returns(session_t* /*session*/) {
  error("host check, a test of error(), nothing is wrong: %s", "100% %s");
}
