#include "console_host/base/utc_time.h"

#include <array>
#include <ctime>

namespace ndk_integrate {

std::string utc_time() {
  const std::time_t time = std::time(nullptr);
  std::tm utc{};
  gmtime_r(&time, &utc);
  std::array<char, sizeof "2026-11-21T20:09:34Z"> text{};
  std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &utc);
  return text.data();
}

}  // namespace ndk_integrate
