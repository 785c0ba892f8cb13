#include "console_host/base/process.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>

#include "console_host/base/file_descriptor.h"

namespace ndk_integrate {

namespace {

void check(int error_number, const std::string& what) {
  if (error_number != 0) {
    throw std::system_error(error_number, std::generic_category(), what);
  }
}

// What a new process finds: nothing to read, both outputs going to `output`, and the signals that
// this program ignores as they usually are.
class SpawnSettings {
 public:
  explicit SpawnSettings(int output) {
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
    check(posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGDEF), kFailed);
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

pid_t start(std::vector<std::string>& arguments, int output) {
  std::vector<char*> texts;
  for (std::string& argument : arguments) {
    texts.push_back(argument.data());
  }
  texts.push_back(nullptr);
  const SpawnSettings settings(output);
  pid_t child = 0;
  check(posix_spawnp(&child, texts[0], settings.actions(), settings.attributes(), texts.data(),
                     environ),
        "cannot run " + arguments[0]);
  return child;
}

std::string read_all(int input) {
  std::string text;
  std::array<char, 65536> buffer{};
  while (true) {
    const ssize_t size = read(input, buffer.data(), buffer.size());
    if (size > 0) {
      text.append(buffer.data(), static_cast<std::size_t>(size));
    } else if (size == 0) {
      return text;
    } else if (errno != EINTR) {
      check(errno, "cannot read the output of a process");
    }
  }
}

int wait_for(pid_t child) {
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) {
      check(errno, "cannot wait for a process");
    }
  }
  return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace

ProcessResult run_process(std::vector<std::string> arguments) {
  std::array<int, 2> ends{};
  check(pipe2(ends.data(), O_CLOEXEC) == 0 ? 0 : errno, "cannot make a pipe");
  const FileDescriptor input(ends[0]);
  FileDescriptor output(ends[1]);
  const pid_t child = start(arguments, output.number());
  output.close();  // so that the end of the process is the end of the input
  ProcessResult result;
  result.output = read_all(input.number());
  result.exit_status = wait_for(child);
  return result;
}

}  // namespace ndk_integrate
