// Checks of running a command. Line ends at the end of an output are never looked at.
#include <string>
#include <vector>

#include "host_check/checks.h"
#include "host_check/scratch.h"
#include "host_check/verdict.h"

namespace host_check {

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

std::vector<Check> command_checks() {
  return {
      {"command-null-status",
       "get_command_output takes a null pointer for the exit status.",
       {},
       [](session_t* /*session*/) { output_of("true"); }},
      {"command-output",
       "get_command_output returns what the command printed.",
       {"command-null-status"},
       [](session_t* /*session*/) { expect_output("printf one", "one"); }},
      {"command-shell",
       "get_command_output hands the command line to a shell: double quotes keep an argument together.",
       {"command-output"},
       [](session_t* /*session*/) {
         expect_output(R"(printf "[%s]" "/opt/my ndk" --force)", "[/opt/my ndk][--force]");
       }},
      {"command-working-directory",
       "get_command_output runs the command in the working directory that the process has at that moment.",
       {"command-output"},
       [](session_t* /*session*/) {
         const ScratchDirectory scratch;
         write_file(scratch.name() + "/script", "printf 'found the script'\n");
         const Stay stay(scratch.name());
         expect_output("sh ./script 2>/dev/null", "found the script");
       }},
      {"command-complete-output",
       "get_command_output returns an output of 1 MB whole.",
       {"command-shell", "command-working-directory"},
       [](session_t* /*session*/) {
         std::string text;
         while (text.size() < 1048576) {
           text += "line at " + std::to_string(text.size()) + "\n";
         }
         text += "the last line";
         const ScratchDirectory scratch;
         write_file(scratch.name() + "/text", text);
         const Stay stay(scratch.name());
         expect_output("cat ./text 2>/dev/null", text);
       }},
      {"command-failing",
       "get_command_output returns the output of a command that fails, too.",
       {"command-working-directory"},
       [](session_t* /*session*/) {
         const ScratchDirectory scratch;
         write_file(scratch.name() + "/script", "printf 'a failure'\nexit 3\n");
         const Stay stay(scratch.name());
         expect_output("sh ./script 2>/dev/null", "a failure");
       }},
      {"command-not-there",
       "get_command_output returns for a command that is not there.",
       {"command-null-status"},
       [](session_t* /*session*/) {
         const ScratchDirectory scratch;
         const Stay stay(scratch.name());
         output_of("./ndk_integration.sh \"/opt/ndk\" --force 2>/dev/null");
       }},
      // The script closes its output long before it ends, so a host that only reads the output to
      // its end comes back too early.
      {"command-waits",
       "get_command_output returns when the command has ended, even if that closed its output earlier.",
       {"command-shell", "command-working-directory"},
       [](session_t* /*session*/) {
         const ScratchDirectory scratch;
         const Stay stay(scratch.name());
         const std::string command = "exec >/dev/null 2>&1; sleep 0.1; : >finished";
         output_of(command);
         if (!is_there("finished")) {
           throw Violated("get_command_output(" + quoted(command) +
                              ", null, true, \"\") should return when the command has ended",
                          "it returned earlier");
         }
       }},
      // The script asks for an answer that nobody is there to give. The shell ends itself where it
      // would wait for ever.
      {"command-standard-input",
       "get_command_output gives the command nothing to read, so that a command which asks for something does not wait.",
       {"command-shell"},
       [](session_t* /*session*/) {
         const StandardInput input("the host's own input\n");
         const std::string output = output_of(
             "(sleep 2; kill $$) >/dev/null 2>&1 & "
             "if read -r answer; then printf 'read: %s' \"$answer\"; else printf 'nothing to read'; "
             "fi; kill $! 2>/dev/null");
         const std::string expected =
             "get_command_output should give the command an empty standard input";
         if (output.empty()) {
           throw Violated(expected, "the command waited for something to read");
         }
         if (output.find("nothing to read") == std::string::npos) {
           throw Violated(expected, "the command gave " + quoted(output));
         }
       }},
  };
}

}  // namespace host_check
