#include "console_host/base/interruption.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <ctime>

namespace ndk_integrate {

namespace {

constexpr std::array<int, 3> kEndingSignals{SIGINT, SIGTERM, SIGHUP};

// Signals are the process's.
int noted_signal = 0;

bool is_ignored(int signal) {
  struct sigaction action {};
  return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

void add_unless_ignored(int signal, sigset_t& signals) {
  if (!is_ignored(signal)) {
    sigaddset(&signals, signal);
  }
}

// Notes one of the ending signals that wait to be looked at, if one does.
void note_waiting_signal() {
  sigset_t blocked;
  sigset_t wanted;
  sigprocmask(SIG_BLOCK, nullptr, &blocked);
  sigemptyset(&wanted);
  for (const int signal : kEndingSignals) {
    if (sigismember(&blocked, signal) == 1) {
      add_unless_ignored(signal, wanted);
    }
  }
  const timespec at_once{};
  if (const int signal = sigtimedwait(&wanted, nullptr, &at_once); signal > 0) {
    note_interruption(signal);
  }
}

}  // namespace

HeldSignals::HeldSignals() {
  sigemptyset(&held_);
  for (const int signal : kEndingSignals) {
    add_unless_ignored(signal, held_);
  }
  add_unless_ignored(SIGTSTP, held_);
  sigaddset(&held_, SIGCHLD);
  sigprocmask(SIG_BLOCK, &held_, &before_);
}

HeldSignals::~HeldSignals() {
  note_waiting_signal();
  if (noted_signal == 0) {
    sigprocmask(SIG_SETMASK, &before_, nullptr);
  }
}

void note_interruption(int signal) {
  if (noted_signal == 0) {
    noted_signal = signal;
  }
}

int interrupting_signal() { return noted_signal; }

bool is_asked_to_end() {
  sigset_t waiting;
  sigpending(&waiting);
  return noted_signal != 0 ||
         std::any_of(kEndingSignals.begin(), kEndingSignals.end(),
                     [&](int signal) { return sigismember(&waiting, signal) == 1; });
}

void throw_if_interrupted() {
  note_waiting_signal();
  if (noted_signal != 0) {
    throw Interrupted();
  }
}

void end_by_signal(int signal) {
  std::signal(signal, SIG_DFL);
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, signal);
  raise(signal);
  sigprocmask(SIG_UNBLOCK, &signals, nullptr);
  constexpr int kShellsOffset = 128;
  std::_Exit(kShellsOffset + signal);  // where it is not to be had, as in process 1 of a container
}

}  // namespace ndk_integrate
