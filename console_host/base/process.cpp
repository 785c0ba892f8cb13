#include "console_host/base/process.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>
#include <thread>

#include "console_host/base/file_descriptor.h"
#include "console_host/base/system_call.h"

namespace ndk_integrate {

namespace {

using Clock = std::chrono::steady_clock;

void check(int error_number, const std::string& what) {
  if (error_number != 0) {
    throw std::system_error(error_number, std::generic_category(), what);
  }
}

// What a new process finds: nothing to read, both outputs going to `output`, and the signals that
// this program ignores as they usually are.
class SpawnSettings {
 public:
  SpawnSettings(int output, const ProcessOptions& options) {
    check(posix_spawn_file_actions_init(&actions_), kFailed);
    check(posix_spawnattr_init(&attributes_), kFailed);
    check(posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0),
          kFailed);
    check(posix_spawn_file_actions_adddup2(&actions_, output, STDOUT_FILENO), kFailed);
    check(posix_spawn_file_actions_adddup2(&actions_, output, STDERR_FILENO), kFailed);
    sigset_t ignored_here;
    sigemptyset(&ignored_here);
    sigaddset(&ignored_here, SIGPIPE);
    sigaddset(&ignored_here, SIGXFSZ);
    check(posix_spawnattr_setsigdefault(&attributes_, &ignored_here), kFailed);
    if (!options.working_directory.empty()) {
      check(posix_spawn_file_actions_addchdir_np(&actions_, options.working_directory.c_str()),
            kFailed);
    }
    const int group_flag = options.time_limit ? POSIX_SPAWN_SETPGROUP : 0;
    check(posix_spawnattr_setflags(&attributes_,
                                   static_cast<short>(POSIX_SPAWN_SETSIGDEF | group_flag)),
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

// What can be waited for until `deadline`, in milliseconds as poll() takes it; -1 for kNever.
int milliseconds_until(Clock::time_point deadline) {
  if (deadline == kNever) {
    return -1;
  }
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
  return static_cast<int>(std::max(left.count(), std::chrono::milliseconds::rep{0}));
}

// Appends what is in the pipe `input` to `text`, at most `most` bytes of it; false at its end.
bool read_some(int input, std::size_t most, std::string& text) {
  std::array<char, 65536> buffer{};
  const ssize_t size =
      uninterrupted([&] { return read(input, buffer.data(), std::min(most, buffer.size())); });
  check(size < 0 ? errno : 0, "cannot read the output of a process");
  text.append(buffer.data(), static_cast<std::size_t>(size));
  return size > 0;
}

// What is in the pipe `input` at this moment, and no more.
void read_what_is_there(int input, std::string& text) {
  int size = 0;
  check(ioctl(input, FIONREAD, &size) == 0 ? 0 : errno, "cannot read the output of a process");
  auto left = static_cast<std::size_t>(size);
  while (left > 0) {
    const std::size_t before = text.size();
    if (!read_some(input, left, text)) {
      return;
    }
    left -= text.size() - before;
  }
}

bool has_ended(pid_t child) {
  siginfo_t info{};
  const int result = uninterrupted(
      [&] { return waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOHANG | WNOWAIT); });
  check(result == 0 ? 0 : errno, "cannot wait for a process");
  return info.si_pid == child;
}

// Reads what `child` prints into the pipe `input`, up to `deadline`, and appends it to `text`. A
// process that it leaves behind may keep the pipe open, and is not waited for.
void read_output(pid_t child, int input, Clock::time_point deadline, std::string& text) {
  // Readable when the child has ended. A kernel that has no such descriptor is asked again and again.
  const FileDescriptor end(static_cast<int>(syscall(SYS_pidfd_open, child, 0)));
  constexpr int kPause = 50;  // milliseconds
  while (true) {
    const int left = milliseconds_until(deadline);
    const int most = end.is_open() ? left : left < 0 ? kPause : std::min(left, kPause);
    std::array<pollfd, 2> waited{{{input, POLLIN, 0}, {end.number(), POLLIN, 0}}};
    const int count = uninterrupted([&] { return poll(waited.data(), waited.size(), most); });
    check(count < 0 ? errno : 0, "cannot wait for the output of a process");
    if (has_ended(child)) {
      read_what_is_there(input, text);
      return;
    }
    if ((waited[0].revents != 0 && !read_some(input, std::string::npos, text)) || left == 0) {
      return;
    }
  }
}

// Waits for the end of `child` and returns its status. Past `deadline` kills its process group.
int wait_for(pid_t child, Clock::time_point deadline, bool& is_timed_out) {
  constexpr std::chrono::milliseconds kPause(5);
  int status = 0;
  while (true) {
    const pid_t ended = waitpid(child, &status, deadline != kNever && !is_timed_out ? WNOHANG : 0);
    if (ended == child) {
      return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    }
    if (ended < 0 && errno != EINTR) {
      check(errno, "cannot wait for a process");
    }
    if (ended == 0 && Clock::now() >= deadline) {
      kill(-child, SIGKILL);
      is_timed_out = true;
    } else if (ended == 0) {
      std::this_thread::sleep_for(kPause);  // its output has ended, so it is about to end too
    }
  }
}

}  // namespace

std::vector<std::string> environment() {
  std::vector<std::string> variables;
  for (char** variable = environ; variable != nullptr && *variable != nullptr; ++variable) {
    variables.emplace_back(*variable);
  }
  return variables;
}

ProcessResult run_process(std::vector<std::string> arguments, const ProcessOptions& options) {
  std::array<int, 2> ends{};
  check(pipe2(ends.data(), O_CLOEXEC) == 0 ? 0 : errno, "cannot make a pipe");
  const FileDescriptor input(ends[0]);
  FileDescriptor output(ends[1]);
  const Clock::time_point deadline =
      options.time_limit ? Clock::now() + *options.time_limit : kNever;
  const pid_t child = start(arguments, options, output.number());
  output.close();  // so that the end of the process is the end of the input
  ProcessResult result;
  read_output(child, input.number(), deadline, result.output);
  result.exit_status = wait_for(child, deadline, result.is_timed_out);
  return result;
}

}  // namespace ndk_integrate
