// Any release and any list, through is_ndk_version_supported and ndk_version_string.
// Input: a byte of choices, then MAJOR|MINOR|LIST, the numbers in decimal.
#include <cstdlib>

#include "fuzz/expect.h"
#include "fuzz/fuzz_host.h"
#include "fuzz/release_text.h"

namespace {

// An entry is what stands between two separators, and never empty.
bool lists(const std::string& list, const std::string& release) {
  return release.find(';') == std::string::npos &&
         (";" + list + ";").find(";" + release + ";") != std::string::npos;
}

std::string log_line(const std::string& release, const std::string& list) {
  const std::string line =
      "log: NDK_INTEGRATION: is_ndk_version_supported(): '" + as_printed(release);
  if (lists(list, release)) {
    return line + "' version is supported";
  }
  return line + "' version is not supported, supported versions are '" + as_printed(list) +
         "'. Returning false";
}

std::int32_t number(const std::string& text) {
  return static_cast<std::int32_t>(std::strtoll(text.c_str(), nullptr, 10));
}

std::string truth(bool value) { return value ? "true" : "false"; }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  FuzzHost host(input.byte());
  const std::int32_t major = number(input.text());
  const ndk_version_t version{major, number(input.text())};
  const std::string list = input.rest();

  const bool supported = is_ndk_version_supported(version, list);
  const std::string text = ndk_version_string(version);

  const std::string release = release_text(version);
  std::vector<std::string> came = host.record;
  came.push_back("supported: " + truth(supported));
  came.push_back("text: " + text);
  expect_same(
      "is_ndk_version_supported, ndk_version_string",
      {log_line(release, list), "supported: " + truth(lists(list, release)), "text: " + release},
      came);
  return 0;
}
