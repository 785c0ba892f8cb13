// Any bytes as a manifest: it is refused, or what is read of it leads nowhere outside, and is
// written and read again as it was.
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <string>

#include "console_host/package/manifest.h"

using ndk_integrate::Manifest;

namespace {

void require(bool is_so) {
  if (!is_so) {
    std::abort();
  }
}

void check(const Manifest& manifest) {
  for (const auto& [path, entry] : manifest.files) {
    require(!path.empty() && path[0] != '/' && path.find('\0') == std::string::npos);
    require(("/" + path + "/").find("/../") == std::string::npos);
    require(path.compare(0, 15, ".ndk-integrate/") != 0);
    require(ndk_integrate::is_hash(entry.original) && entry.mode <= 07777);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Manifest manifest;
  try {
    manifest = ndk_integrate::parse_manifest(std::string(data, data + size));
  } catch (const std::exception&) {
    return 0;
  }
  check(manifest);
  const std::string text = ndk_integrate::text_of(manifest);
  require(ndk_integrate::text_of(ndk_integrate::parse_manifest(text)) == text);
  return 0;
}
