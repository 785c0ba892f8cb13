#include "console_host/lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fstream>
#include <stdexcept>

namespace {

// The process that holds the lock `file`, for a person. The file lists those that were given it,
// one a line; the first may have been killed, and the integration script still be at work.
std::string holder(const std::string& file) {
  std::ifstream in(file);
  for (pid_t process = 0; in >> process;) {
    if (kill(process, 0) == 0 || errno == EPERM) {
      return "process " + std::to_string(process);
    }
  }
  return "a process that the integration script left behind";
}

}  // namespace

Lock::Lock(const std::string& dir)
    // Not closed on exec: the integration script inherits it.
    : file_(open((dir + "/lock").c_str(), O_RDWR | O_CREAT | O_APPEND, 0666)) {
  const std::string file = dir + "/lock";
  if (!file_.is_open()) {
    throw std::runtime_error("cannot open the lock file " + file + ": " + std::strerror(errno));
  }
  if (flock(file_.number(), LOCK_EX | LOCK_NB) != 0) {
    throw std::runtime_error(errno == EWOULDBLOCK
                                 ? "another ndk-integrate is at work on this compiler (" +
                                       holder(file) + " holds " + file + "); wait until it is done"
                                 : "cannot lock " + file + ": " + std::strerror(errno));
  }
  // Who holds the lock is told to help a person; it works without.
  [[maybe_unused]] const int ignored = ftruncate(file_.number(), 0);
  add_holder(getpid());
}

Lock::~Lock() { [[maybe_unused]] const int ignored = ftruncate(file_.number(), 0); }

void Lock::add_holder(pid_t holder) const {
  const std::string line = std::to_string(holder) + "\n";
  [[maybe_unused]] const ssize_t ignored = write(file_.number(), line.data(), line.size());
}
