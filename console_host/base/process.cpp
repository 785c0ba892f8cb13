#include "console_host/base/process.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>
#include <thread>

#include "console_host/base/bounded_text.h"
#include "console_host/base/file_descriptor.h"
#include "console_host/base/interruption.h"
#include "console_host/base/system_call.h"
#include "console_host/base/terminal.h"

namespace ndk_integrate {

namespace {

using Clock = std::chrono::steady_clock;

void check(int error_number, const std::string& what) {
  if (error_number != 0) {
    throw std::system_error(error_number, std::generic_category(), what);
  }
}

// What a new process finds: nothing to read, both outputs going to `output`, a process group of its
// own, and all signals as they usually are.
class SpawnSettings {
 public:
  SpawnSettings(int output, const ProcessOptions& options) {
    check(posix_spawn_file_actions_init(&actions_), kFailed);
    check(posix_spawnattr_init(&attributes_), kFailed);
    check(posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0),
          kFailed);
    check(posix_spawn_file_actions_adddup2(&actions_, output, STDOUT_FILENO), kFailed);
    check(posix_spawn_file_actions_adddup2(&actions_, output, STDERR_FILENO), kFailed);
    if (!options.working_directory.empty()) {
      check(posix_spawn_file_actions_addchdir_np(&actions_, options.working_directory.c_str()),
            kFailed);
    }
    sigset_t signals;
    sigfillset(&signals);
    check(posix_spawnattr_setsigdefault(&attributes_, &signals), kFailed);
    sigemptyset(&signals);
    check(posix_spawnattr_setsigmask(&attributes_, &signals), kFailed);
    check(posix_spawnattr_setflags(
              &attributes_, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP),
          kFailed);
  }
  ~SpawnSettings() {
    posix_spawnattr_destroy(&attributes_);
    posix_spawn_file_actions_destroy(&actions_);
  }
  SpawnSettings(const SpawnSettings&) = delete;
  SpawnSettings& operator=(const SpawnSettings&) = delete;

  const posix_spawn_file_actions_t* actions() const { return &actions_; }
  const posix_spawnattr_t* attributes() const { return &attributes_; }

 private:
  static constexpr const char* kFailed = "cannot prepare a new process";

  posix_spawn_file_actions_t actions_{};
  posix_spawnattr_t attributes_{};
};

// Pointers to `texts`, with a null at the end, as the system wants them.
std::vector<char*> pointers_to(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) {
    pointers.push_back(text.data());
  }
  pointers.push_back(nullptr);
  return pointers;
}

pid_t start(std::vector<std::string>& arguments, const ProcessOptions& options, int output) {
  std::vector<std::string> variables = options.environment.value_or(environment());
  const SpawnSettings settings(output, options);
  pid_t child = 0;
  check(posix_spawnp(&child, arguments[0].c_str(), settings.actions(), settings.attributes(),
                     pointers_to(arguments).data(), pointers_to(variables).data()),
        "cannot run " + arguments[0]);
  return child;
}

constexpr Clock::time_point kNever = Clock::time_point::max();
constexpr int kStatusOfSignals = 128;  // and the signal, as the shell counts

// What can be waited for until `deadline`, in milliseconds as poll() takes it; -1 for kNever.
int milliseconds_until(Clock::time_point deadline) {
  if (deadline == kNever) {
    return -1;
  }
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
  return static_cast<int>(std::max(left.count(), std::chrono::milliseconds::rep{0}));
}

// A process that was started, with all that happens to it until its end.
class RunningProcess {
 public:
  // `child` leads a process group and prints into the pipe `input`.
  RunningProcess(pid_t child, FileDescriptor input, const HeldSignals& signals,
                 const ProcessOptions& options)
      : child_(child),
        input_(std::move(input)),
        signals_(signalfd(-1, &signals.held(), SFD_CLOEXEC | SFD_NONBLOCK)),
        options_(options),
        kill_at_(options.time_limit ? started_ + *options.time_limit : kNever),
        output_(options.most_of_each_end) {
    check(signals_.is_open() ? 0 : errno, "cannot wait for signals");
  }
  // Whatever went wrong here, nothing runs on.
  ~RunningProcess() {
    if (!is_reaped_) {
      kill(-child_, SIGKILL);
      uninterrupted([&] { return waitpid(child_, nullptr, 0); });
    }
  }
  RunningProcess(const RunningProcess&) = delete;
  RunningProcess& operator=(const RunningProcess&) = delete;

  ProcessResult wait() {
    while (!has_ended()) {
      wait_for_something();
    }
    read_what_is_there();
    ProcessResult result;
    result.exit_status = reap();
    note_signal_of_terminal(result.exit_status);
    if (is_interrupted()) {
      wait_for_group();
    }
    result.is_timed_out = is_killed_ && !is_interrupted();
    result.output = output_.take();
    return result;
  }

 private:
  static bool is_interrupted() { return interrupting_signal() != 0; }

  // Looks whether the process has ended, and goes on with one that was stopped.
  bool has_ended() {
    siginfo_t info{};
    const int result = uninterrupted([&] {
      return waitid(P_PID, static_cast<id_t>(child_), &info,
                    WEXITED | WSTOPPED | WNOHANG | WNOWAIT);
    });
    check(result == 0 ? 0 : errno, "cannot wait for a process");
    if (info.si_pid == child_ && info.si_code == CLD_STOPPED) {
      uninterrupted(
          [&] { return waitid(P_PID, static_cast<id_t>(child_), &info, WSTOPPED | WNOHANG); });
      go_on_after_stop(info.si_status);
      return false;
    }
    return info.si_pid == child_;
  }

  // The terminal stops a background group that wants it, and the one that has it at Ctrl-Z. In the
  // background this program stops as well, as the shell's job that they are together.
  void go_on_after_stop(int signal) {
    const bool wants_terminal = signal == SIGTTIN || signal == SIGTTOU;
    if (!wants_terminal && !(signal == SIGTSTP && terminal_.is_lent())) {
      return;  // somebody stopped it, who will let it go on
    }
    if (!wants_terminal || !terminal_.lend_to(child_)) {
      stop_too();
      terminal_.lend_to(child_);
    }
    kill(-child_, SIGCONT);
  }

  // Stops this program until it is to go on, as the shell's command fg lets it.
  void stop_too() {
    terminal_.take_back();
    raise(SIGSTOP);
  }

  // Waits for output, a signal or the time at which something is to be done, and does it.
  void wait_for_something() {
    std::array<pollfd, 2> waited{{{input_.number(), POLLIN, 0}, {signals_.number(), POLLIN, 0}}};
    const int most = milliseconds_until(std::min(kill_at_, silent_at_));
    const int count = uninterrupted([&] { return poll(waited.data(), waited.size(), most); });
    check(count < 0 ? errno : 0, "cannot wait for the output of a process");
    if (waited[0].revents != 0 && !read_some(std::string::npos)) {
      input_.close();  // its end; poll passes it over from now on
    }
    if (waited[1].revents != 0) {
      take_signals();
    }
    if (Clock::now() >= kill_at_) {
      kill_group();
    }
    if (Clock::now() >= silent_at_) {
      const auto time = Clock::now() - started_;
      options_.watcher->is_silent(std::chrono::duration_cast<std::chrono::milliseconds>(time));
      silent_at_ = next_silence();
    }
  }

  Clock::time_point next_silence() const {
    return options_.watcher == nullptr ? kNever : Clock::now() + options_.silence;
  }

  // Takes what is in the pipe, at most `most` bytes of it; false at its end.
  bool read_some(std::size_t most) {
    std::array<char, 65536> buffer{};
    const ssize_t size = uninterrupted(
        [&] { return read(input_.number(), buffer.data(), std::min(most, buffer.size())); });
    check(size < 0 ? errno : 0, "cannot read the output of a process");
    const std::string_view text(buffer.data(), static_cast<std::size_t>(size));
    read_ += text.size();
    output_.append(text);
    if (options_.watcher != nullptr && size > 0) {
      options_.watcher->printed(text);
      silent_at_ = next_silence();
    }
    return size > 0;
  }

  // Takes what is in the pipe at this moment, and no more: a process that is left behind may keep
  // it open.
  void read_what_is_there() {
    int size = 0;
    if (!input_.is_open()) {
      return;
    }
    check(ioctl(input_.number(), FIONREAD, &size) == 0 ? 0 : errno,
          "cannot read the output of a process");
    const std::size_t end = read_ + static_cast<std::size_t>(size);
    while (read_ < end && read_some(end - read_)) {
    }
  }

  void take_signals() {
    signalfd_siginfo info{};
    while (uninterrupted([&] { return read(signals_.number(), &info, sizeof info); }) ==
           static_cast<ssize_t>(sizeof info)) {
      if (info.ssi_signo == SIGTSTP) {
        kill(-child_, SIGSTOP);
        stop_too();
        kill(-child_, SIGCONT);
      } else if (info.ssi_signo != SIGCHLD) {
        interrupt(static_cast<int>(info.ssi_signo));
      }
    }
  }

  void interrupt(int signal) {
    note_interruption(signal);
    prctl(PR_SET_CHILD_SUBREAPER, 1);  // so that it is seen here when what the process started ends
    kill(-child_, signal);
    kill(-child_, SIGCONT);  // one that is stopped would not notice
    kill_at_ = std::min(kill_at_, Clock::now() + options_.grace_period);
  }

  void kill_group() {
    kill(-child_, SIGKILL);
    is_killed_ = true;
    kill_at_ = kNever;
  }

  int reap() {
    int status = 0;
    check(uninterrupted([&] { return waitpid(child_, &status, 0); }) < 0 ? errno : 0,
          "cannot wait for a process");
    is_reaped_ = true;
    return WIFSIGNALED(status) ? kStatusOfSignals + WTERMSIG(status) : WEXITSTATUS(status);
  }

  // As long as it had the terminal, only the process was told that somebody typed Ctrl-C.
  void note_signal_of_terminal(int status) {
    for (const int signal : {SIGINT, SIGHUP}) {
      if (terminal_.is_lent() && status == kStatusOfSignals + signal) {
        interrupt(signal);
      }
    }
  }

  // Waits until nothing of the process group is left, or kills it.
  void wait_for_group() {
    constexpr std::chrono::milliseconds kPause(10);
    constexpr std::chrono::seconds kToBeGone(1);  // after it was killed
    if (is_killed_) {
      kill(-child_, SIGKILL);  // what was started meanwhile
    }
    Clock::time_point give_up_at = is_killed_ ? Clock::now() + kToBeGone : kill_at_;
    while (is_group_left() && !(is_killed_ && Clock::now() >= give_up_at)) {
      if (!is_killed_ && Clock::now() >= give_up_at) {
        kill_group();
        give_up_at = Clock::now() + kToBeGone;
      }
      read_what_is_there();
      std::this_thread::sleep_for(kPause);  // nothing tells of the end of other processes' children
    }
    read_what_is_there();
  }

  bool is_group_left() const {
    while (waitpid(-child_, nullptr, WNOHANG) > 0) {
    }
    return kill(-child_, 0) == 0;
  }

  pid_t child_;
  FileDescriptor input_;
  FileDescriptor signals_;
  const ProcessOptions& options_;
  TerminalLoan terminal_;
  Clock::time_point started_ = Clock::now();
  Clock::time_point kill_at_;
  Clock::time_point silent_at_ = next_silence();
  BoundedText output_;
  std::size_t read_ = 0;  // bytes of the output
  bool is_killed_ = false;
  bool is_reaped_ = false;
};

}  // namespace

std::vector<std::string> environment() {
  std::vector<std::string> variables;
  for (char** variable = environ; variable != nullptr && *variable != nullptr; ++variable) {
    variables.emplace_back(*variable);
  }
  return variables;
}

ProcessResult run_process(std::vector<std::string> arguments, const ProcessOptions& options) {
  const HeldSignals signals;
  throw_if_interrupted();
  std::array<int, 2> ends{};
  check(pipe2(ends.data(), O_CLOEXEC) == 0 ? 0 : errno, "cannot make a pipe");
  FileDescriptor input(ends[0]);
  FileDescriptor output(ends[1]);
  const pid_t child = start(arguments, options, output.number());
  RunningProcess process(child, std::move(input), signals, options);
  output.close();  // so that the end of the process is the end of the input
  return process.wait();
}

}  // namespace ndk_integrate
