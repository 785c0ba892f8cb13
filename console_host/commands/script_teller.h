// Tells of a script while it runs.
#ifndef CONSOLE_HOST_COMMANDS_SCRIPT_TELLER_H
#define CONSOLE_HOST_COMMANDS_SCRIPT_TELLER_H

#include <string>
#include <string_view>

#include "console_host/package/script_run.h"

namespace ndk_integrate {

// Its command line and the lines that it prints are told as they come, and at a terminal that it
// still runs although it prints nothing; none of that when quiet.
class ScriptTeller : public ScriptWatcher {
 public:
  ScriptTeller();

  void begins(const std::string& command) override;
  void printed(std::string_view text) override;
  void is_silent(std::chrono::milliseconds time) override;
  void ended() override;

 private:
  void end_notice();

  bool is_terminal_;
  std::string line_;        // that has no end yet
  std::size_t notice_ = 0;  // the length of that which stands at the terminal
};

// Tells how the script ended, and when quiet what one that failed printed.
void tell_end_of_script(const ScriptRun& script);

}  // namespace ndk_integrate

#endif
