// Texts that stay one line and do nothing to a terminal.
#ifndef CONSOLE_HOST_BASE_ESCAPING_H
#define CONSOLE_HOST_BASE_ESCAPING_H

#include <cstddef>
#include <string>

namespace ndk_integrate {

// `text` with every line end and other control character written as "\n", "\r", "\t" or "\x1b", so
// that it stays one line and does nothing to a terminal.
std::string one_line(const std::string& text);

// `text` with every byte that is not part of UTF-8 written as U+FFFD and the byte's two hexadecimal
// digits: "\xff" becomes "\ufffdff". A U+FFFD in `text` is written in the same way, as its three
// bytes, so that each U+FFFD of the result stands for the byte behind it and `text` can be made
// again from it.
std::string utf8_text(const std::string& text);

// A text that is long is escaped in pieces of about kPiece bytes. Where the piece of `text` that
// starts at `begin` ends, with no character of UTF-8 cut in two.
constexpr std::size_t kPiece = 65536;
std::size_t end_of_piece(const std::string& text, std::size_t begin);

// True for line ends and the other control characters of ASCII.
bool is_control(char c);

}  // namespace ndk_integrate

#endif
