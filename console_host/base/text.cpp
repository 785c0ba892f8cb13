#include "console_host/base/text.h"

#include <cctype>

namespace ndk_integrate {

std::vector<std::string> split(const std::string& text, const std::string& separator) {
  std::vector<std::string> pieces;
  std::size_t begin = 0;
  while (begin < text.size()) {
    const std::size_t found = separator.empty() ? std::string::npos : text.find(separator, begin);
    const std::size_t end = found == std::string::npos ? text.size() : found;
    if (end > begin) {
      pieces.push_back(text.substr(begin, end - begin));
    }
    begin = end + separator.size();
  }
  return pieces;
}

std::string join(const std::vector<std::string>& pieces, const std::string& separator) {
  std::string text;
  for (const std::string& piece : pieces) {
    text += (&piece == &pieces.front() ? "" : separator) + piece;
  }
  return text;
}

Replaced replace_all(const std::string& text, const std::string& from, const std::string& to) {
  Replaced result;
  std::size_t begin = 0;
  std::size_t found = from.empty() ? std::string::npos : text.find(from);
  while (found != std::string::npos) {
    result.text.append(text, begin, found - begin).append(to);
    begin = found + from.size();
    found = text.find(from, begin);
    ++result.count;
  }
  result.text.append(text, begin);
  return result;
}

bool begins_with(const std::string& text, const std::string& beginning) {
  return text.compare(0, beginning.size(), beginning) == 0;
}

bool ends_with(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

std::string trimmed(const std::string& text) {
  const char* const blanks = " \t\r";
  const std::size_t first = text.find_first_not_of(blanks);
  if (first == std::string::npos) {
    return "";
  }
  return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

std::string lower_case(std::string text) {
  for (char& c : text) {
    if (c >= 'A' && c <= 'Z') {
      c = static_cast<char>(c - 'A' + 'a');
    }
  }
  return text;
}

bool is_letter_or_digit(char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0; }

bool is_number(const std::string& text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

}  // namespace ndk_integrate
