#include "console_host/base/directory.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <utility>

#include "console_host/base/system_call.h"
#include "console_host/base/text.h"

namespace ndk_integrate {

namespace {

constexpr int kDirectory = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
constexpr mode_t kOwnersDirectory = 0700;
constexpr mode_t kOwnersFile = 0600;

bool is_link(int dir, const std::string& entry) {
  struct stat status {};
  return fstatat(dir, entry.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(status.st_mode);
}

// One step at a time, where the kernel or a sandbox has no openat2. A file descriptor, or -1 and
// `errno`.
int open_in_steps(int from, const std::string& relative) {
  FileDescriptor at(fcntl(from, F_DUPFD_CLOEXEC, 0));
  const std::vector<std::string> steps = split(relative, "/");
  if (relative[0] == '/') {
    errno = EXDEV;
    return -1;
  }
  for (std::size_t i = 0; at.is_open() && i < steps.size(); ++i) {
    if (steps[i] == "..") {
      errno = EXDEV;
      return -1;
    }
    // What is only passed through need not be readable.
    const int access = i + 1 == steps.size() ? O_RDONLY : O_PATH;
    FileDescriptor next(uninterrupted([&] {
      return openat(at.number(), steps[i].c_str(), access | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    }));
    if (!next.is_open() && errno == ENOTDIR) {
      errno = is_link(at.number(), steps[i]) ? ELOOP : ENOTDIR;
    }
    at = std::move(next);
  }
  return at.release();
}

// A file descriptor, or -1 and `errno`: ELOOP for a link on the way, EXDEV for a way out.
int open_beneath(int from, const std::string& relative) {
  struct open_how how {};
  how.flags = kDirectory;
  how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS;
  const auto number = static_cast<int>(uninterrupted(
      [&] { return syscall(SYS_openat2, from, relative.c_str(), &how, sizeof how); }));
  // EAGAIN: something was renamed meanwhile, so that it cannot tell.
  const bool is_no_answer = number < 0 && (errno == ENOSYS || errno == EPERM || errno == EINVAL ||
                                           errno == E2BIG || errno == EAGAIN);
  return is_no_answer ? open_in_steps(from, relative) : number;
}

// True when `errno` says that this file system, kernel or sandbox does not do it.
bool is_not_offered() {
  return errno == EINVAL || errno == ENOSYS || errno == EOPNOTSUPP || errno == EPERM;
}

}  // namespace

Directory::Directory(FileDescriptor descriptor, std::string name)
    : descriptor_(std::make_shared<const FileDescriptor>(std::move(descriptor))),
      name_(std::move(name)) {}

Directory::Directory(const std::string& name)
    : Directory(FileDescriptor(uninterrupted([&] { return open(name.c_str(), kDirectory); })),
                name) {
  if (!descriptor_->is_open()) {
    throw_system_error("open the directory " + name);
  }
}

struct stat Directory::status() const {
  struct stat status {};
  if (fstat(number(), &status) != 0) {
    throw_system_error("look at " + name_);
  }
  return status;
}

std::string Directory::lasting_name() const {
  const std::string name = "/proc/self/fd/" + std::to_string(number());
  struct stat through_proc {};
  const struct stat itself = status();
  return stat(name.c_str(), &through_proc) == 0 && through_proc.st_dev == itself.st_dev &&
                 through_proc.st_ino == itself.st_ino
             ? name
             : "";
}

std::optional<Directory> Directory::find_directory(const std::string& relative) const {
  if (relative.empty()) {
    return *this;
  }
  const std::string name = name_of(relative);
  FileDescriptor descriptor(open_beneath(number(), relative));
  if (descriptor.is_open()) {
    return Directory(std::move(descriptor), name);
  }
  if (errno == ENOENT || errno == ENOTDIR) {
    return std::nullopt;
  }
  if (errno == ELOOP || errno == EXDEV) {
    throw std::runtime_error(name + " is a link or lies behind one, or is outside " + name_ +
                             "; no link is followed there, put an ordinary directory in its place");
  }
  throw_system_error("open the directory " + name);
}

std::optional<struct stat> Directory::status_of(const std::string& entry) const {
  struct stat status {};
  if (fstatat(number(), entry.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) {
    return status;
  }
  if (errno != ENOENT) {
    throw_system_error("look at " + name_of(entry));
  }
  return std::nullopt;
}

std::optional<File> Directory::find_file(const std::string& entry) const {
  FileDescriptor descriptor(uninterrupted([&] {
    return openat(number(), entry.c_str(),
                  O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  }));
  if (descriptor.is_open()) {
    return File(std::move(descriptor), name_of(entry));
  }
  if (errno == ENOENT) {
    return std::nullopt;
  }
  if (errno == ELOOP || errno == ENXIO) {  // a link, a socket
    throw NotOrdinaryFile(name_of(entry), errno == ELOOP);
  }
  throw_system_error("read " + name_of(entry));
}

File Directory::make_file(const std::string& entry, const std::string& original) const {
  const NoUmask as_asked;
  FileDescriptor descriptor(uninterrupted([&] {
    return openat(number(), entry.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                  kOwnersFile);
  }));
  if (!descriptor.is_open()) {
    if (errno == ENOSPC || errno == EDQUOT) {
      throw IncompleteCopy(original);
    }
    throw_system_error("write " + name_of(entry));
  }
  return {std::move(descriptor), name_of(entry)};
}

bool Directory::make_directory(const std::string& entry) const {
  const NoUmask as_asked;
  if (mkdirat(number(), entry.c_str(), kOwnersDirectory) == 0) {
    flush();
    return true;
  }
  if (errno != EEXIST) {
    throw_system_error("make the directory " + name_of(entry));
  }
  return false;
}

bool Directory::remove_file(const std::string& entry) const {
  if (unlinkat(number(), entry.c_str(), 0) != 0) {
    if (errno != ENOENT) {
      throw_system_error("remove " + name_of(entry));
    }
    return false;
  }
  return true;
}

bool Directory::remove_directory(const std::string& entry) const {
  if (unlinkat(number(), entry.c_str(), AT_REMOVEDIR) != 0) {
    if (errno != ENOENT && errno != ENOTEMPTY && errno != EEXIST) {
      throw_system_error("remove the directory " + name_of(entry));
    }
    return false;
  }
  return true;
}

void Directory::rename(const std::string& entry, const Directory& to,
                       const std::string& new_entry) const {
  if (renameat(number(), entry.c_str(), to.number(), new_entry.c_str()) != 0) {
    throw_system_error("replace " + to.name_of(new_entry));
  }
}

Directory::Exchange Directory::exchange(const std::string& entry, const Directory& other,
                                        const std::string& other_entry) const {
  if (renameat2(number(), entry.c_str(), other.number(), other_entry.c_str(), RENAME_EXCHANGE) ==
      0) {
    return Exchange::kDone;
  }
  if (errno == ENOENT) {
    return Exchange::kMissing;
  }
  if (is_not_offered()) {
    return Exchange::kNotPossible;
  }
  throw_system_error("replace " + other.name_of(other_entry));
}

bool Directory::move_unless_taken(const std::string& entry, const Directory& to,
                                  const std::string& new_entry) const {
  if (renameat2(number(), entry.c_str(), to.number(), new_entry.c_str(), RENAME_NOREPLACE) == 0) {
    return true;
  }
  if (errno == EEXIST) {
    return false;
  }
  if (is_not_offered()) {
    return move_where_renaming_cannot_refuse(entry, to, new_entry);
  }
  throw_system_error("put a file at " + to.name_of(new_entry));
}

bool Directory::move_where_renaming_cannot_refuse(const std::string& entry, const Directory& to,
                                                  const std::string& new_entry) const {
  // A second name refuses to replace anything, as well.
  if (linkat(number(), entry.c_str(), to.number(), new_entry.c_str(), 0) == 0) {
    remove_file(entry);
    return true;
  }
  if (errno == EEXIST || to.status_of(new_entry)) {
    return false;
  }
  rename(entry, to, new_entry);  // a file system without second names: a look just before it
  return true;
}

std::vector<std::string> Directory::entries() const {
  const auto close_stream = [](DIR* stream) { closedir(stream); };
  FileDescriptor again(uninterrupted([&] { return openat(number(), ".", kDirectory); }));
  const std::unique_ptr<DIR, decltype(close_stream)> stream(
      again.is_open() ? fdopendir(again.number()) : nullptr, close_stream);
  if (!stream) {
    throw_system_error("list " + name_);
  }
  again.release();  // it is the stream's now
  std::vector<std::string> names;
  errno = 0;
  while (const dirent* entry = readdir(stream.get())) {
    const std::string name = static_cast<const char*>(entry->d_name);
    if (name != "." && name != "..") {
      names.push_back(name);
    }
  }
  if (errno != 0) {
    throw_system_error("list " + name_);
  }
  return names;
}

int Directory::why_not_writable() const {
  return faccessat(number(), ".", W_OK | X_OK, AT_EACCESS) == 0 ? 0 : errno;
}

void Directory::flush() const {
  if (uninterrupted([&] { return fsync(number()); }) != 0) {
    throw_system_error("flush " + name_ + " to the disk");
  }
}

}  // namespace ndk_integrate
