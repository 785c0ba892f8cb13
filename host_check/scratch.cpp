#include "host_check/scratch.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include "host_check/verdict.h"

namespace fs = std::filesystem;

namespace host_check {

namespace {

Skipped cannot(const std::string& what) { return Skipped{what + ": " + std::strerror(errno)}; }

}  // namespace

ScratchDirectory::ScratchDirectory() {
  const char* tmpdir = std::getenv("TMPDIR");
  const fs::path parent = tmpdir == nullptr || *tmpdir == '\0' ? "/tmp" : tmpdir;
  std::error_code failure;  // Absolute, because checks change the working directory.
  name_ = (fs::absolute(parent, failure) / "host_check.XXXXXX").string();
  if (mkdtemp(name_.data()) == nullptr) {
    throw cannot("cannot make a temporary directory in " + parent.string());
  }
}

ScratchDirectory::~ScratchDirectory() {
  std::error_code ignored;
  fs::remove_all(name_, ignored);
}

std::string ScratchDirectory::make_directory(const std::string& name) const {
  std::string directory = name_ + name;
  if (mkdir(directory.c_str(), 0700) != 0) {
    throw cannot("cannot make the directory " + directory);
  }
  return directory;
}

UnreadableDirectories::UnreadableDirectories() : closed_(scratch_.make_directory("/closed")) {
  const std::string loop = scratch_.name() + "/loop";
  if (symlink("loop", loop.c_str()) != 0) {
    throw cannot("cannot make the link " + loop);
  }
  names_.push_back(loop);
  chmod(closed_.c_str(), 0);
  if (faccessat(AT_FDCWD, closed_.c_str(), X_OK, AT_EACCESS) != 0) {
    names_.push_back(closed_);
  }
}

UnreadableDirectories::~UnreadableDirectories() { chmod(closed_.c_str(), 0700); }

StandardInput::StandardInput(const std::string& text)
    : before_(fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)) {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    throw cannot("cannot make a pipe");
  }
  [[maybe_unused]] const auto written = write(ends[1], text.data(), text.size());
  close(ends[1]);
  dup2(ends[0], STDIN_FILENO);
  if (ends[0] != STDIN_FILENO) {
    close(ends[0]);
  }
}

StandardInput::~StandardInput() {
  if (before_ >= 0) {
    dup2(before_, STDIN_FILENO);
    close(before_);
  } else {
    close(STDIN_FILENO);
  }
}

namespace {

// The life of the process that runs `call`: tells `result` what it gave and ends.
[[noreturn]] void run_call(const std::function<std::string()>& call, int result) {
  const rlimit one_second{1, 1};
  setrlimit(RLIMIT_CPU, &one_second);
  std::string text;
  try {
    text = "=" + call();
  } catch (const std::exception& exception) {
    text = std::string("!") + exception.what();
  } catch (...) {
    text = "!not a std::exception";
  }
  [[maybe_unused]] const auto written = write(result, text.data(), text.size());
  _exit(0);
}

}  // namespace

std::optional<std::string> in_one_second(const std::function<std::string()>& call) {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    throw cannot("cannot make a pipe");
  }
  const pid_t child = fork();
  if (child < 0) {
    close(ends[0]);
    close(ends[1]);
    throw cannot("cannot start a process");
  }
  if (child == 0) {
    run_call(call, ends[1]);
  }
  close(ends[1]);
  std::array<char, 4096> buffer{};
  const ssize_t size = read(ends[0], buffer.data(), buffer.size());
  close(ends[0]);
  waitpid(child, nullptr, 0);
  if (size <= 0) {
    return std::nullopt;
  }
  const std::string text(buffer.data(), static_cast<std::size_t>(size));
  if (text[0] == '!') {
    throw std::runtime_error(text.substr(1));
  }
  return text.substr(1);
}

Stay::Stay(const std::string& directory) : before_(open(".", O_PATH | O_DIRECTORY | O_CLOEXEC)) {
  if (before_ < 0) {
    throw cannot("cannot remember the working directory");
  }
  if (chdir(directory.c_str()) != 0) {
    const int reason = errno;
    close(before_);
    errno = reason;
    throw cannot("cannot go to the directory " + directory);
  }
}

Stay::~Stay() {
  [[maybe_unused]] const int ignored = fchdir(before_);
  close(before_);
}

void write_file(const std::string& file, const std::string& content) {
  std::ofstream out(file, std::ios::binary);
  out << content << std::flush;
  if (!out) {
    throw cannot("cannot write the file " + file);
  }
}

std::string read_file(const std::string& file) {
  std::ostringstream content;
  content << std::ifstream(file, std::ios::binary).rdbuf();
  return content.str();
}

bool is_there(const std::string& name) { return access(name.c_str(), F_OK) == 0; }

}  // namespace host_check
