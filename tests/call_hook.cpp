// Loaded into ndk-integrate before the C library, this stops it at one system call and runs a
// command there: so what a test lets happen "at this moment" happens at this moment, every time.
//
// Each line of CALL_HOOK is "NAME N before|after COMMAND": the Nth call of NAME, counted from 1.
// The program is the command's parent process.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

namespace {

struct Hook {
  std::string name;
  int left = 0;
  std::string when;
  std::string command;
};

std::vector<Hook>& hooks() {
  static std::vector<Hook> hooks = [] {
    std::vector<Hook> made;
    const char* text = std::getenv("CALL_HOOK");
    std::istringstream lines(text == nullptr ? "" : text);
    for (std::string line; std::getline(lines, line);) {
      std::istringstream words(line);
      Hook hook;
      words >> hook.name >> hook.left >> hook.when;
      std::getline(words, hook.command);
      made.push_back(hook);
    }
    unsetenv("CALL_HOOK");
    unsetenv("LD_PRELOAD");
    return made;
  }();
  return hooks;
}

void run_hooks(const char* name, const char* when) {
  const int number = errno;
  for (Hook& hook : hooks()) {
    if (hook.name == name && hook.when == when && --hook.left == 0 &&
        std::system(hook.command.c_str()) != 0) {
      std::fprintf(stderr, "the command of a hook failed: %s\n", hook.command.c_str());
      std::abort();
    }
  }
  errno = number;
}

template <typename Call>
auto hooked(const char* name, Call call) {
  run_hooks(name, "before");
  const auto result = call();
  run_hooks(name, "after");
  return result;
}

template <typename Function>
Function next(const char* name, Function /*type*/) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {

int renameat2(int from, const char* a, int to, const char* b, unsigned flags) noexcept {
  return hooked("renameat2", [&] { return next("renameat2", &renameat2)(from, a, to, b, flags); });
}

int renameat(int from, const char* a, int to, const char* b) noexcept {
  return hooked("renameat", [&] { return next("renameat", &renameat)(from, a, to, b); });
}

int rename(const char* a, const char* b) noexcept {
  return hooked("rename", [&] { return next("rename", &rename)(a, b); });
}

int mkdirat(int dir, const char* name, mode_t mode) noexcept {
  return hooked("mkdirat", [&] { return next("mkdirat", &mkdirat)(dir, name, mode); });
}

int flock(int file, int operation) noexcept {
  return hooked("flock", [&] { return next("flock", &flock)(file, operation); });
}

int fsync(int file) {
  return hooked("fsync", [&] { return next("fsync", &fsync)(file); });
}

int unlinkat(int dir, const char* name, int flags) noexcept {
  return hooked("unlinkat", [&] { return next("unlinkat", &unlinkat)(dir, name, flags); });
}

int openat(int dir, const char* name, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
  va_end(rest);
  return hooked("openat", [&] { return next("openat", &openat)(dir, name, flags, mode); });
}

}  // extern "C"
