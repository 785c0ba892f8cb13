// Texts that stay one line and do nothing to a terminal.
#ifndef CONSOLE_HOST_BASE_ESCAPING_H
#define CONSOLE_HOST_BASE_ESCAPING_H

#include <string>

namespace ndk_integrate {

// `text` with every line end and other control character written as "\n", "\r", "\t" or "\x1b", so
// that it stays one line and does nothing to a terminal.
std::string one_line(const std::string& text);

// True for line ends and the other control characters of ASCII.
bool is_control(char c);

}  // namespace ndk_integrate

#endif
