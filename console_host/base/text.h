// Texts and their pieces.
#ifndef CONSOLE_HOST_BASE_TEXT_H
#define CONSOLE_HOST_BASE_TEXT_H

#include <cstddef>
#include <string>
#include <vector>

namespace ndk_integrate {

// The pieces of `text` between the occurrences of `separator`, in their order, without the empty
// ones. An empty `separator` occurs nowhere.
std::vector<std::string> split(const std::string& text, const std::string& separator);

// `pieces` one after the other, with `separator` between them.
std::string join(const std::vector<std::string>& pieces, const std::string& separator);

// `text` with every occurrence of `from` replaced by `to`, from the left, and how many there were.
// An empty `from` occurs nowhere.
struct Replaced {
  std::string text;
  std::size_t count = 0;
};
Replaced replace_all(const std::string& text, const std::string& from, const std::string& to);

bool begins_with(const std::string& text, const std::string& beginning);
bool ends_with(const std::string& text, const std::string& end);

// `text` without blanks, tabs and carriage returns at its ends.
std::string trimmed(const std::string& text);

// `text` with the letters A to Z in lower case.
std::string lower_case(std::string text);

// True for the letters and digits of ASCII.
bool is_letter_or_digit(char c);

// True when `text` is one decimal digit or more, and nothing else.
bool is_number(const std::string& text);

}  // namespace ndk_integrate

#endif
