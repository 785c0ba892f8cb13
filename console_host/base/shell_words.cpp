#include "console_host/base/shell_words.h"

#include <algorithm>
#include <optional>

#include "console_host/base/text.h"

namespace ndk_integrate {

namespace {

bool parts_words(char c) { return std::string(" \t\r\n;&|<>()").find(c) != std::string::npos; }

// Whether a backslash before `c` is one that quotes it, between double quotes.
bool is_quotable(char c) { return std::string("\"\\$`").find(c) != std::string::npos; }

}  // namespace

std::vector<std::string> shell_words(const std::string& line) {
  std::vector<std::string> words;
  std::optional<std::string> word;  // the one that has begun; it may be empty
  char quote = 0;                   // the one that is open
  const auto add = [&](char c) { word = word.value_or("") + c; };
  for (std::size_t i = 0; i < line.size(); ++i) {
    const char c = line[i];
    const bool has_next = i + 1 < line.size();
    if (c == quote) {
      quote = 0;
    } else if (c == '\\' && quote != '\'' && has_next && (quote == 0 || is_quotable(line[i + 1]))) {
      add(line[++i]);
    } else if (quote == 0 && (c == '\'' || c == '"')) {
      quote = c;
      word = word.value_or("");
    } else if (quote != 0 || !parts_words(c)) {
      add(c);
    } else if (word) {
      words.push_back(*word);
      word.reset();
    }
  }
  if (word) {
    words.push_back(*word);
  }
  return words;
}

std::string shell_quoted(const std::string& word) {
  const auto is_plain = [](char c) {
    return is_letter_or_digit(c) || std::string("/._-+=:,@%").find(c) != std::string::npos;
  };
  if (!word.empty() && std::all_of(word.begin(), word.end(), is_plain)) {
    return word;
  }
  return "'" + replace_all(word, "'", R"('\'')").text + "'";
}

}  // namespace ndk_integrate
