#include "fuzz/expect.h"

#include <poll.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>

namespace {

std::string escaped(const std::string& text) {
  const std::string digits = "0123456789abcdef";
  std::string result;
  for (const char c : text) {
    const auto code = static_cast<unsigned char>(c);
    if (code >= 0x20 && code < 0x7f && c != '\\') {
      result += c;
      continue;
    }
    result += {'\\', 'x', digits.at(code / 16U), digits.at(code % 16U)};
  }
  return result;
}

void print(const char* title, const std::vector<std::string>& lines) {
  std::fprintf(stderr, "%s:\n", title);
  for (const std::string& line : lines) {
    std::fprintf(stderr, "  %s\n", escaped(line).c_str());
  }
}

}  // namespace

void expect(bool holds, const char* what) {
  if (!holds) {
    std::fprintf(stderr, "\nEXPECTED, but it is not so: %s\n", what);
    std::abort();
  }
}

void expect_same(const char* what, const std::vector<std::string>& expected,
                 const std::vector<std::string>& came) {
  if (expected != came) {
    std::fprintf(stderr, "\nDIFFERENT: %s\n", what);
    print("expected", expected);
    print("came", came);
    std::abort();
  }
}

std::size_t open_descriptors() {
  // Of the first 100, which is more than a target ever opens at a time: one call asks for them all.
  std::array<pollfd, 100> all{};
  for (std::size_t n = 0; n < all.size(); ++n) {
    all.at(n).fd = static_cast<int>(n);
  }
  poll(all.data(), all.size(), 0);
  return static_cast<std::size_t>(std::count_if(
      all.begin(), all.end(), [](const pollfd& one) { return (one.revents & POLLNVAL) == 0; }));
}
