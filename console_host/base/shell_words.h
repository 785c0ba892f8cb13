// Command lines as a shell reads them.
#ifndef CONSOLE_HOST_BASE_SHELL_WORDS_H
#define CONSOLE_HOST_BASE_SHELL_WORDS_H

#include <string>
#include <vector>

namespace ndk_integrate {

// The words of the command line `line`, without their quotes and backslashes; nothing is expanded.
// Operators such as ";" and ">" only part words. A quote that is not closed holds to the line's
// end.
std::vector<std::string> shell_words(const std::string& line);

// `word` as it stands in a command line: quoted where a shell would not leave it alone.
std::string shell_quoted(const std::string& word);

}  // namespace ndk_integrate

#endif
