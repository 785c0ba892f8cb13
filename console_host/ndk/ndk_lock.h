// The facts that tell one NDK from every other, wherever it lies: what a team commits, so that all
// of it builds with the same one.
#ifndef CONSOLE_HOST_NDK_NDK_LOCK_H
#define CONSOLE_HOST_NDK_NDK_LOCK_H

#include <optional>
#include <string>

namespace ndk_integrate {

struct NdkLock {
  std::optional<std::string> release;
  std::string revision;
  std::string hash;  // the SHA-256 of source.properties, in hexadecimal
};

// The facts of the NDK in `dir`, which has this release and revision. The hash is "" when its
// source.properties cannot be read.
NdkLock lock_of(const std::string& dir, const std::optional<std::string>& release,
                const std::string& revision);

// How the NDK that is `found` differs from the one that is `locked`, for people: "its release is
// r21d, not r21e"; "" when it is the same.
std::string difference(const NdkLock& locked, const NdkLock& found);

// Writes `lock` to the file `file`, in one step. Throws std::runtime_error when that fails.
void write_lock(const std::string& file, const NdkLock& lock);

// The lock in the file `file`. Throws UsageError when it cannot be read or is not a lock.
NdkLock read_lock(const std::string& file);

}  // namespace ndk_integrate

#endif
