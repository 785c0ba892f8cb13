#include "console_host/base/hash.h"

#include <sha2.h>

#include <array>
#include <cstdint>

namespace ndk_integrate {

std::string sha256(const std::string& bytes) {
  std::array<char, SHA256_DIGEST_STRING_LENGTH> digest{};
  SHA256Data(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size(), digest.data());
  return digest.data();
}

}  // namespace ndk_integrate
