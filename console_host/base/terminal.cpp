#include "console_host/base/terminal.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>

namespace ndk_integrate {

bool TerminalLoan::lend_to(pid_t group) {
  if (!terminal_.is_open()) {
    terminal_ = FileDescriptor(open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC));
  }
  if (!is_lent_ && terminal_.is_open() && tcgetpgrp(terminal_.number()) == getpgrp()) {
    is_lent_ = tcsetpgrp(terminal_.number(), group) == 0;
  }
  return is_lent_;
}

void TerminalLoan::take_back() {
  if (!is_lent_) {
    return;
  }
  // Who takes the terminal in the background is stopped for that, unless the signal is blocked.
  sigset_t stops;
  sigset_t before;
  sigemptyset(&stops);
  sigaddset(&stops, SIGTTOU);
  sigprocmask(SIG_BLOCK, &stops, &before);
  tcsetpgrp(terminal_.number(), getpgrp());
  sigprocmask(SIG_SETMASK, &before, nullptr);
  is_lent_ = false;
}

}  // namespace ndk_integrate
