// Checks of running a command. Line ends at the end of an output are never looked at.
#include <string>

#include "host_check/checks.h"
#include "host_check/scratch.h"
#include "host_check/verdict.h"

namespace {

// As the plug-in calls it.
std::string output_of(const std::string& command) {
  return get_command_output(command, nullptr, true, "");
}

void expect_output(const std::string& command, const std::string& expected) {
  expect("get_command_output(" + quoted(command) + ", null, true, \"\")", expected,
         output_of(command));
}

}  // namespace

void command_null_status(session_t* /*session*/) { output_of("true"); }

void command_output(session_t* /*session*/) { expect_output("printf one", "one"); }

void command_shell(session_t* /*session*/) {
  expect_output(R"(printf "[%s]" "/opt/my ndk" --force)", "[/opt/my ndk][--force]");
}

void command_working_directory(session_t* /*session*/) {
  const ScratchDirectory scratch;
  write_file(scratch.name() + "/script", "printf 'found the script'\n");
  const Stay stay(scratch.name());
  expect_output("sh ./script", "found the script");
}

void command_complete_output(session_t* /*session*/) {
  std::string text;
  while (text.size() < 1048576) {
    text += "line at " + std::to_string(text.size()) + "\n";
  }
  text += "the last line";
  const ScratchDirectory scratch;
  write_file(scratch.name() + "/text", text);
  const Stay stay(scratch.name());
  expect_output("cat ./text", text);
}

void command_failing(session_t* /*session*/) {
  const ScratchDirectory scratch;
  write_file(scratch.name() + "/script", "printf 'a failure'\nexit 3\n");
  const Stay stay(scratch.name());
  expect_output("sh ./script", "a failure");
}

void command_not_there(session_t* /*session*/) {
  const ScratchDirectory scratch;
  const Stay stay(scratch.name());
  output_of("./ndk_integration.sh \"/opt/ndk\" --force");
}

// The script closes its output long before it ends, so a host that only reads the output to its end
// comes back too early.
void command_waits(session_t* /*session*/) {
  const ScratchDirectory scratch;
  const Stay stay(scratch.name());
  const std::string command = "exec >/dev/null 2>&1; sleep 0.1; : >finished";
  output_of(command);
  if (!is_there("finished")) {
    throw Violated("get_command_output(" + quoted(command) +
                       ", null, true, \"\") should return when the command has ended",
                   "it returned earlier");
  }
}
