#include "console_host/base/durable_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>

#include "console_host/base/file_descriptor.h"
#include "console_host/base/paths.h"

namespace ndk_integrate {

namespace {

[[noreturn]] void fail(const std::string& what) {
  throw std::runtime_error(what + ": " + std::strerror(errno));
}

void write_all(int output, const std::string& bytes, const std::string& original) {
  std::size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t size = write(output, bytes.data() + done, bytes.size() - done);
    if (size >= 0) {
      done += static_cast<std::size_t>(size);
    } else if (errno != EINTR) {
      throw IncompleteCopy(original);
    }
  }
}

}  // namespace

std::string read_whole_file(const std::string& file) {
  const std::ifstream in(file, std::ios::binary);
  std::ostringstream bytes;
  if (!in) {
    fail("cannot read " + file);
  }
  bytes << in.rdbuf();  // an empty file sets the failure state of `bytes`, and leaves it empty
  if (bytes.bad()) {
    fail("cannot read " + file);
  }
  return bytes.str();
}

void write_file(const std::string& file, const std::string& bytes, mode_t mode,
                const std::string& original) {
  constexpr mode_t kOwnerOnly = 0600;
  const FileDescriptor output(
      open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, kOwnerOnly));
  if (!output.is_open()) {
    if (errno == ENOSPC || errno == EDQUOT) {
      throw IncompleteCopy(original);
    }
    fail("cannot write " + file);
  }
  write_all(output.number(), bytes, original);
  if (fchmod(output.number(), mode) != 0) {
    fail("cannot set the mode of " + file);
  }
}

void flush_to_disk(const std::string& file) {
  const FileDescriptor input(open(file.c_str(), O_RDONLY | O_CLOEXEC));
  if (!input.is_open() || fsync(input.number()) != 0) {
    fail("cannot flush " + file + " to the disk");
  }
}

void take_over_mode_and_owner(const std::string& file, const std::string& model) {
  struct stat status {};
  if (stat(model.c_str(), &status) == 0 && S_ISREG(status.st_mode)) {
    take_over_owner(file, model, status.st_mode & 07777);
  }
}

void take_over_owner(const std::string& file, const std::string& model, mode_t mode) {
  constexpr mode_t kRunAsOwnerOrGroup = 06000;
  struct stat status {};
  if (stat(model.c_str(), &status) == 0 && chown(file.c_str(), status.st_uid, status.st_gid) != 0) {
    // Only root may give a file away, but its group may be another of the user's own. A program that
    // ran as its owner must not run as somebody else.
    constexpr auto kAsItIs = static_cast<uid_t>(-1);
    [[maybe_unused]] const int ignored = chown(file.c_str(), kAsItIs, status.st_gid);
    mode &= ~kRunAsOwnerOrGroup;
  }
  // After the owner, whose change takes bits away. It cannot fail on a file of our own.
  chmod(file.c_str(), mode);
}

void rename_file(const std::string& from, const std::string& to) {
  if (std::rename(from.c_str(), to.c_str()) != 0) {
    fail("cannot replace " + to);
  }
}

void replace_file(const std::string& from, const std::string& to) {
  rename_file(from, to);
  flush_to_disk(directory_of(to));
}

void make_directory(const std::string& dir, mode_t mode) {
  if (mkdir(dir.c_str(), mode) == 0) {
    flush_to_disk(directory_of(dir));
  } else if (errno != EEXIST) {
    fail("cannot make the directory " + dir);
  }
}

void remove_file(const std::string& file) {
  if (unlink(file.c_str()) == 0) {
    flush_to_disk(directory_of(file));
  } else if (errno != ENOENT) {
    fail("cannot remove " + file);
  }
}

}  // namespace ndk_integrate
