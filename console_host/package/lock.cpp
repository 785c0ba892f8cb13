#include "console_host/package/lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <utility>

#include "console_host/base/durable_file.h"
#include "console_host/base/errors.h"
#include "console_host/base/text.h"

namespace ndk_integrate {

namespace {

namespace fs = std::filesystem;

// True when the process with the directory `proc` in /proc has `dir` open.
bool has_open(const fs::path& proc, const struct stat& dir) {
  std::error_code not_mine;
  for (fs::directory_iterator file(proc / "fd", not_mine), end; file != end;
       file.increment(not_mine)) {
    struct stat status {};
    if (stat(file->path().c_str(), &status) == 0 && status.st_dev == dir.st_dev &&
        status.st_ino == dir.st_ino) {
      return true;
    }
  }
  return false;
}

// Who holds the lock on `dir`, for a person. It may be the integration script of a program that was
// killed. "" for one that has just ended, or another user's, which cannot be seen.
std::string holder(const std::string& dir) {
  struct stat status {};
  std::error_code none;
  if (stat(dir.c_str(), &status) == 0) {
    for (fs::directory_iterator proc("/proc", none), end; proc != end; proc.increment(none)) {
      const std::string process = proc->path().filename().string();
      if (is_number(process) && process != std::to_string(getpid()) &&
          has_open(proc->path(), status)) {
        return "process " + process;
      }
    }
  }
  return "";
}

}  // namespace

Lock::Lock(std::string dir) : dir_(std::move(dir)) {
  constexpr int kMostTries = 100;  // for holders that have just ended
  for (int tries = 1; !take(); ++tries) {
    const std::string who = holder(dir_);
    if (!who.empty() || tries == kMostTries) {
      throw std::runtime_error("another ndk-integrate is at work on this compiler (" +
                               (who.empty() ? "a process of another user" : who) + " holds " +
                               dir_ + "); wait until it is done");
    }
  }
}

bool Lock::take() {
  do {
    constexpr mode_t kOwnerOnly = 0700;
    make_directory(dir_, kOwnerOnly);
    // Not closed on exec: the integration script inherits it.
    open_ = FileDescriptor(open(dir_.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW));
    if (!open_.is_open()) {
      if (errno == ENOENT) {
        continue;  // another process has just removed it
      }
      throw std::runtime_error(errno == ENOTDIR || errno == ELOOP
                                   ? dir_ +
                                         " is not a directory; ndk-integrate keeps originals there"
                                   : "cannot open " + dir_ + ": " + system_error_text(errno));
    }
    if (flock(open_.number(), LOCK_EX | LOCK_NB) != 0) {
      if (errno == EWOULDBLOCK) {
        return false;
      }
      throw std::runtime_error("cannot lock " + dir_ + ": " + system_error_text(errno));
    }
  } while (!is_still_there());
  return true;
}

Lock::~Lock() {
  // Fails where something is kept there.
  [[maybe_unused]] const int ignored = rmdir(dir_.c_str());
}

bool Lock::is_still_there() const {
  struct stat entry {};
  struct stat locked {};
  return open_.is_open() && lstat(dir_.c_str(), &entry) == 0 &&
         fstat(open_.number(), &locked) == 0 && entry.st_dev == locked.st_dev &&
         entry.st_ino == locked.st_ino;
}

}  // namespace ndk_integrate
