// What every system call needs.
#ifndef CONSOLE_HOST_BASE_SYSTEM_CALL_H
#define CONSOLE_HOST_BASE_SYSTEM_CALL_H

#include <sys/stat.h>

#include <cerrno>
#include <string>

namespace ndk_integrate {

// Makes `call` again as long as a signal interrupts it, and returns what it returned, as system
// calls do: below 0 for a failure, which `errno` names.
template <typename Call>
auto uninterrupted(Call call) {
  auto result = call();
  while (result < 0 && errno == EINTR) {
    result = call();
  }
  return result;
}

// Throws std::system_error, a std::runtime_error: "cannot WHAT: ", and what the system says of
// `errno`.
[[noreturn]] void throw_system_error(const std::string& what);

// As long as this object lives, the modes that are asked for are the modes that files are made
// with: no umask takes a bit away.
class NoUmask {
 public:
  NoUmask() : before_(umask(0)) {}
  ~NoUmask() { umask(before_); }
  NoUmask(const NoUmask&) = delete;
  NoUmask& operator=(const NoUmask&) = delete;

 private:
  mode_t before_;
};

}  // namespace ndk_integrate

#endif
