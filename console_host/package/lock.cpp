#include "console_host/package/lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <utility>

#include "console_host/base/system_call.h"
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
std::string holder(const struct stat& dir) {
  std::error_code none;
  for (fs::directory_iterator proc("/proc", none), end; proc != end; proc.increment(none)) {
    const std::string process = proc->path().filename().string();
    if (is_number(process) && process != std::to_string(getpid()) && has_open(proc->path(), dir)) {
      return "process " + process;
    }
  }
  return "";
}

std::string at_work(const std::string& who, const Directory& directory) {
  return "another ndk-integrate is at work on this compiler (" + who + " holds " +
         directory.name() + "); wait until it is done";
}

}  // namespace

std::optional<Directory> find_kept_directory(const CompilerTree& tree, const Directory& parent,
                                             const std::string& entry) {
  const std::string name = parent.name_of(entry);
  const std::optional<struct stat> there = parent.status_of(entry);
  if (there && !S_ISDIR(there->st_mode)) {
    throw std::runtime_error(name + " is not a directory; ndk-integrate keeps originals there");
  }
  std::optional<Directory> directory = parent.find_directory(entry);
  if (directory) {
    if (const std::string why = tree.why_not_kept_by_us(name, directory->status()); !why.empty()) {
      throw std::runtime_error(why);
    }
  }
  return directory;
}

Lock::Lock(const CompilerTree& tree, std::string entry) : tree_(tree), entry_(std::move(entry)) {
  // For holders that have just ended, and those that removed the directory before it was locked.
  constexpr int kMostTries = 100;
  for (int tries = 1; !take(); ++tries) {
    if (const std::string who = directory_ ? holder(directory_->status()) : ""; !who.empty()) {
      throw std::runtime_error(at_work(who, *directory_));
    }
    if (tries == kMostTries) {
      throw std::runtime_error(directory_ ? at_work("a process of another user", *directory_)
                                          : "cannot lock " + tree.directory().name_of(entry_) +
                                                ": it is removed again and again");
    }
  }
}

bool Lock::take() {
  const bool is_new = tree_.directory().make_directory(entry_);
  try {
    return take_what_is_there();
  } catch (...) {
    if (is_new) {
      leave();  // it was made for nothing
    }
    throw;
  }
}

bool Lock::take_what_is_there() {
  directory_ = find_kept_directory(tree_, tree_.directory(), entry_);
  if (!directory_) {
    return false;
  }
  const int number = directory_->number();
  if (uninterrupted([&] { return flock(number, LOCK_EX | LOCK_NB); }) != 0) {
    if (errno == EWOULDBLOCK) {
      return false;
    }
    throw_system_error("lock " + directory_->name());
  }
  if (!is_still_there()) {
    directory_.reset();
    return false;
  }
  // A directory with nothing in it may have been made just now.
  constexpr mode_t kPermissions = 0777;
  constexpr mode_t kOwnerOnly = 0700;
  const struct stat status = directory_->status();
  if (status.st_uid == geteuid() && directory_->entries().empty()) {
    tree_.hand_over(*directory_);
  }
  const bool is_ours = status.st_uid == geteuid();
  if (is_ours && (status.st_mode & kPermissions) != kOwnerOnly &&
      uninterrupted([&] { return fchmod(number, kOwnerOnly); }) != 0) {
    throw_system_error("set the mode of " + directory_->name());
  }
  if (fcntl(number, F_SETFD, 0) != 0) {  // the integration script inherits it
    throw_system_error("lock " + directory_->name());
  }
  return true;
}

// What the script left behind keeps the lock: it is at work there still.
Lock::~Lock() { leave(); }

void Lock::leave() const {
  try {
    if (!directory_ || is_still_there()) {
      // Stays where something is kept there.
      tree_.directory().remove_directory(entry_);
    }
  } catch (const std::exception&) {
    // It stays, and the next run removes it.
  }
}

bool Lock::is_still_there() const {
  const std::optional<struct stat> entry = tree_.directory().status_of(entry_);
  const struct stat locked = directory_->status();
  return entry && entry->st_dev == locked.st_dev && entry->st_ino == locked.st_ino;
}

void Lock::require_held() const {
  if (!is_still_there()) {
    throw std::runtime_error(directory_->name() +
                             " was moved or removed while ndk-integrate is at work; another may be "
                             "at work by now, so this one stops");
  }
}

}  // namespace ndk_integrate
