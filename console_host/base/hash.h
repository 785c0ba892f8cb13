#ifndef CONSOLE_HOST_BASE_HASH_H
#define CONSOLE_HOST_BASE_HASH_H

#include <string>

namespace ndk_integrate {

// The SHA-256 of `bytes`, in hexadecimal.
std::string sha256(const std::string& bytes);

}  // namespace ndk_integrate

#endif
