#include "console_host/package/lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace ndk_integrate {

namespace {

bool is_alive(pid_t process) { return kill(process, 0) == 0 || errno == EPERM; }

// The process that took the lock on `file`, as the system knows it; 0 when it does not. A line of
// /proc/locks is "1: FLOCK  ADVISORY  WRITE 1234 08:02:5678 0 EOF", with the process and the inode.
pid_t taker(const std::string& file) {
  struct stat status {};
  if (stat(file.c_str(), &status) != 0) {
    return 0;
  }
  const std::string inode = ":" + std::to_string(status.st_ino);
  std::ifstream locks("/proc/locks");
  for (std::string line; std::getline(locks, line);) {
    std::istringstream fields(line);
    std::string number;
    std::string kind;
    std::string advisory;
    std::string mode;
    std::string place;
    pid_t process = 0;
    if (fields >> number >> kind >> advisory >> mode >> process >> place && kind == "FLOCK" &&
        place.size() > inode.size() &&
        place.compare(place.size() - inode.size(), inode.size(), inode) == 0) {
      return process;
    }
  }
  return 0;
}

// The process that holds the lock `file`, for a person. The file lists those that were given it, one
// a line; the first may have been killed, and the integration script still be at work. One that has
// only begun does not stand there yet.
std::string holder(const std::string& file) {
  std::ifstream in(file);
  for (pid_t process = 0; in >> process;) {
    if (is_alive(process)) {
      return "process " + std::to_string(process);
    }
  }
  const pid_t process = taker(file);
  return process > 0 && is_alive(process) ? "process " + std::to_string(process)
                                          : "a process that the integration script left behind";
}

}  // namespace

Lock::Lock(const std::string& dir)
    // Not closed on exec: the integration script inherits it.
    : file_(open((dir + "/lock").c_str(), O_RDWR | O_CREAT | O_APPEND | O_NOFOLLOW, 0666)) {
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

}  // namespace ndk_integrate
