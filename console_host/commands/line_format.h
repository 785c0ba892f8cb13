// The line that `find --format` prints for a directory.
#ifndef CONSOLE_HOST_COMMANDS_LINE_FORMAT_H
#define CONSOLE_HOST_COMMANDS_LINE_FORMAT_H

#include <string>

#include "console_host/ndk/judgement.h"

namespace ndk_integrate {

// `format` with its placeholders, {path} and the like, replaced, and "\t", "\n" and "\\" as a tab,
// a line end and a backslash; "{{" and "}}" stand for braces. What is not known is empty. Line ends
// and control characters in a value are escaped. Throws UsageError when a placeholder or an escape
// is unknown, with its column.
std::string formatted_line(const std::string& format, const Judgement& judgement);

}  // namespace ndk_integrate

#endif
