// The signals that ask the program to end: SIGINT, SIGTERM and SIGHUP.
#ifndef CONSOLE_HOST_BASE_INTERRUPTION_H
#define CONSOLE_HOST_BASE_INTERRUPTION_H

#include <csignal>
#include <stdexcept>

namespace ndk_integrate {

// The program was asked to end.
class Interrupted : public std::runtime_error {
 public:
  Interrupted() : std::runtime_error("interrupted") {}
};

// As long as one of these lives, such a signal ends nothing but waits until it is looked at, so
// that what has begun ends in order. So do SIGTSTP and SIGCHLD. A signal that is ignored stays
// ignored.
class HeldSignals {
 public:
  HeldSignals();
  // One that was not looked at is noted.
  ~HeldSignals();
  HeldSignals(const HeldSignals&) = delete;
  HeldSignals& operator=(const HeldSignals&) = delete;

  const sigset_t& held() const { return held_; }

 private:
  sigset_t held_{};
  sigset_t before_{};
};

// Notes that `signal` asked the program to end. Signals are held from then on.
void note_interruption(int signal);

// The signal that was noted first; 0 when none was.
int interrupting_signal();

// True when a signal asked the program to end, also when it is held and was not looked at yet.
bool is_asked_to_end();

// Throws Interrupted when a signal asked the program to end, among them those that are held now.
void throw_if_interrupted();

// Ends the program as one that `signal` ends.
[[noreturn]] void end_by_signal(int signal);

}  // namespace ndk_integrate

#endif
