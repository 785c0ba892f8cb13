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

namespace {

// How many bytes the character of UTF-8 has that begins at `text`[i]; 0 when none does.
std::size_t utf8_length(const std::string& text, std::size_t i) {
  const auto byte = [&](std::size_t at) {
    return at < text.size() ? static_cast<unsigned char>(text[at]) : 0U;
  };
  const unsigned lead = byte(i);
  if (lead < 0x80) {
    return 1;
  }
  const std::size_t length = lead < 0xc2 || lead > 0xf4 ? 0 : lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : 4;
  for (std::size_t at = 1; at < length; ++at) {
    if ((byte(i + at) & 0xc0U) != 0x80U) {
      return 0;
    }
  }
  const unsigned second = byte(i + 1);
  const bool is_overlong = (lead == 0xe0 && second < 0xa0) || (lead == 0xf0 && second < 0x90);
  const bool is_surrogate = lead == 0xed && second >= 0xa0;
  const bool is_too_big = lead == 0xf4 && second >= 0x90;
  return is_overlong || is_surrogate || is_too_big ? 0 : length;
}

}  // namespace

std::string utf8_text(const std::string& text) {
  const std::string replacement = "\xef\xbf\xbd";  // U+FFFD
  std::string result;
  for (std::size_t i = 0; i < text.size();) {
    const std::size_t length = utf8_length(text, i);
    if (length > 0 && text.compare(i, length, replacement) != 0) {
      result.append(text, i, length);
      i += length;
    } else {
      result += replacement + escaped(text[i++]).substr(2);
    }
  }
  return result;
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

std::size_t end_of_piece(const std::string& text, std::size_t begin) {
  constexpr std::size_t kLongestCharacter = 4;
  const std::size_t most = begin + kPiece;
  if (text.size() <= most) {
    return text.size();
  }
  const auto is_inside_character = [&](std::size_t i) {
    return (static_cast<unsigned char>(text[i]) & 0xC0U) == 0x80U;
  };
  std::size_t end = most;
  while (is_inside_character(end) && most - end < kLongestCharacter) {
    --end;
  }
  return is_inside_character(end) ? most : end;
}

}  // namespace ndk_integrate
