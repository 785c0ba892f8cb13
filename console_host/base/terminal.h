// The controlling terminal, which belongs to one process group at a time.
#ifndef CONSOLE_HOST_BASE_TERMINAL_H
#define CONSOLE_HOST_BASE_TERMINAL_H

#include <sys/types.h>

#include "console_host/base/file_descriptor.h"

namespace ndk_integrate {

// Lends the terminal to a process group, and takes it back at its end.
class TerminalLoan {
 public:
  TerminalLoan() = default;
  ~TerminalLoan() { take_back(); }
  TerminalLoan(const TerminalLoan&) = delete;
  TerminalLoan& operator=(const TerminalLoan&) = delete;

  // False when this program may not: without a terminal, or in the background.
  bool lend_to(pid_t group);
  void take_back();
  bool is_lent() const { return is_lent_; }

 private:
  FileDescriptor terminal_{-1};  // opened when it is asked for first
  bool is_lent_ = false;
};

}  // namespace ndk_integrate

#endif
