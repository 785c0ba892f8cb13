#include "console_host/base/file.h"

#include <fcntl.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <utility>
#include <vector>

#include "console_host/base/system_call.h"
#include "console_host/base/text.h"

namespace ndk_integrate {

namespace {

constexpr const char* kAccessControlList = "system.posix_acl_access";

// Those that the file's owner set. They are kept, or it is an error.
bool is_owners_own(const std::string& attribute) {
  return attribute == kAccessControlList || begins_with(attribute, "user.");
}

// Those that say something of the bytes, and so are wrong for others.
bool is_about_content(const std::string& attribute) {
  return attribute == "security.capability" || attribute == "security.ima" ||
         attribute == "security.evm";
}

// What `call(buffer, size)` gives, which tells its size when asked with none.
template <typename Call>
std::string sized(Call call, const std::string& what) {
  while (true) {
    const ssize_t size = call(nullptr, 0);
    std::string bytes(static_cast<std::size_t>(std::max<ssize_t>(size, 0)), '\0');
    const ssize_t got = size <= 0 ? size : call(bytes.data(), bytes.size());
    if (got >= 0) {
      bytes.resize(static_cast<std::size_t>(got));
      return bytes;
    }
    if (errno != ERANGE) {  // it has grown since
      throw_system_error(what);
    }
  }
}

std::vector<std::string> attributes_of(const File& file) {
  if (flistxattr(file.number(), nullptr, 0) < 0 && errno == ENOTSUP) {
    return {};
  }
  const std::string list =
      sized([&](char* buffer, std::size_t size) { return flistxattr(file.number(), buffer, size); },
            "read the attributes of " + file.name());
  std::vector<std::string> names;
  for (std::size_t begin = 0; begin < list.size(); begin += names.back().size() + 1) {
    names.emplace_back(list.c_str() + begin);
  }
  return names;
}

void take_over(const std::string& attribute, const File& from, const File& to) {
  const std::string value = sized(
      [&](char* buffer, std::size_t size) {
        return fgetxattr(from.number(), attribute.c_str(), buffer, size);
      },
      "read the attribute " + attribute + " of " + from.name());
  if (fsetxattr(to.number(), attribute.c_str(), value.data(), value.size(), 0) != 0 &&
      is_owners_own(attribute)) {
    throw_system_error("keep the attribute " + attribute + " of " + from.name());
  }
}

}  // namespace

File::File(FileDescriptor descriptor, std::string name)
    : descriptor_(std::move(descriptor)), name_(std::move(name)) {
  if (!S_ISREG(status().st_mode)) {
    throw NotOrdinaryFile(name_, false);
  }
}

struct stat File::status() const {
  struct stat status {};
  if (fstat(number(), &status) != 0) {
    throw_system_error("look at " + name_);
  }
  return status;
}

std::string File::read() const {
  std::string bytes;
  std::array<char, 65536> buffer{};
  while (true) {
    const ssize_t size = uninterrupted([&] {
      return pread(number(), buffer.data(), buffer.size(), static_cast<off_t>(bytes.size()));
    });
    if (size < 0) {
      throw_system_error("read " + name_);
    }
    if (size == 0) {
      return bytes;
    }
    bytes.append(buffer.data(), static_cast<std::size_t>(size));
  }
}

void File::write(const std::string& bytes, const std::string& original) const {
  std::size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t size =
        uninterrupted([&] { return ::write(number(), bytes.data() + done, bytes.size() - done); });
    if (size <= 0) {
      throw IncompleteCopy(original);
    }
    done += static_cast<std::size_t>(size);
  }
}

bool File::is_being_written() const {
  // A lease on a file is not given while somebody has it open for writing. Should one have to be
  // given up in that moment, the signal for it is one that nobody minds.
  fcntl(number(), F_SETSIG, SIGURG);
  if (fcntl(number(), F_SETLEASE, F_RDLCK) != 0) {
    return errno == EAGAIN;
  }
  fcntl(number(), F_SETLEASE, F_UNLCK);
  return false;
}

void File::set_mode(mode_t mode) const {
  if (uninterrupted([&] { return fchmod(number(), mode); }) != 0) {
    throw_system_error("set the mode of " + name_);
  }
}

void File::set_owner(uid_t user, gid_t group) const {
  if (uninterrupted([&] { return fchown(number(), user, group); }) != 0) {
    throw_system_error("set the owner of " + name_);
  }
}

bool File::set_owner_where_permitted(uid_t user, gid_t group) const {
  constexpr auto kAsItIs = static_cast<uid_t>(-1);
  const auto is_given = [&](uid_t to) {
    if (uninterrupted([&] { return fchown(number(), to, group); }) == 0) {
      return true;
    }
    if (errno != EPERM && errno != EINVAL) {  // EINVAL: not a user of this name space
      throw_system_error("set the owner of " + name_);
    }
    return false;
  };
  if (is_given(user)) {
    return true;
  }
  is_given(kAsItIs);
  return false;
}

void File::take_over_attributes(const File& model) const {
  const std::vector<std::string> wanted = attributes_of(model);
  for (const std::string& attribute : attributes_of(*this)) {
    // A directory may give some to each file that is made in it.
    const bool is_wanted = std::find(wanted.begin(), wanted.end(), attribute) != wanted.end();
    if (is_owners_own(attribute) && !is_wanted && fremovexattr(number(), attribute.c_str()) != 0) {
      throw_system_error("remove the attribute " + attribute + " of " + name_);
    }
  }
  for (const std::string& attribute : wanted) {
    if (!is_about_content(attribute)) {
      take_over(attribute, model, *this);
    }
  }
}

void File::flush() const {
  if (uninterrupted([&] { return fsync(number()); }) != 0) {
    throw_system_error("flush " + name_ + " to the disk");
  }
}

File open_file(const std::string& name) {
  FileDescriptor descriptor(uninterrupted(
      [&] { return open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY); }));
  if (!descriptor.is_open()) {
    if (errno == ENXIO) {  // a socket
      throw NotOrdinaryFile(name, false);
    }
    throw_system_error("read " + name);
  }
  return {std::move(descriptor), name};
}

std::string read_whole_file(const std::string& name) { return open_file(name).read(); }

}  // namespace ndk_integrate
