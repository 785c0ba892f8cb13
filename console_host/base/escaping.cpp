#include "console_host/base/escaping.h"

#include <array>
#include <cstdio>

namespace ndk_integrate {

namespace {

// True when a control character beyond ASCII, in UTF-8, begins at `text`[i].
bool is_wide_control(const std::string& text, std::size_t i) {
  const auto code = [&](std::size_t at) {
    return at < text.size() ? static_cast<unsigned char>(text[at]) : 0U;
  };
  return code(i) == 0xc2 && code(i + 1) >= 0x80 && code(i + 1) < 0xa0;
}

std::string escaped(char c) {
  std::array<char, 5> escape{};
  std::snprintf(escape.data(), escape.size(), "\\x%02x", static_cast<unsigned char>(c));
  return escape.data();
}

}  // namespace

bool is_control(char c) {
  const auto code = static_cast<unsigned char>(c);
  return code < 0x20 || code == 0x7f;
}

std::string one_line(const std::string& text) {
  std::string line;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '\n') {
      line += "\\n";
    } else if (c == '\r') {
      line += "\\r";
    } else if (c == '\t') {
      line += "\\t";
    } else if (is_control(c)) {
      line += escaped(c);
    } else if (is_wide_control(text, i)) {
      line += escaped(c) + escaped(text[++i]);
    } else {
      line += c;
    }
  }
  return line;
}

}  // namespace ndk_integrate
