#include "console_host/ndk/project_files.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <optional>
#include <stdexcept>

#include "console_host/base/text.h"

namespace ndk_integrate {

namespace {

// The text is not in the form that its file should have.
class Malformed : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

void refuse_binary(const std::string& text) {
  if (text.find('\0') != std::string::npos) {
    throw Malformed("it is not a text file");
  }
}

std::string without_byte_order_mark(const std::string& text) {
  return text.compare(0, 3, "\xef\xbb\xbf") == 0 ? text.substr(3) : text;
}

std::string in_utf8(std::uint32_t code) {
  std::string text;
  if (code < 0x80) {
    text += static_cast<char>(code);
  } else if (code < 0x800) {
    text += static_cast<char>(0xc0U | (code >> 6U));
    text += static_cast<char>(0x80U | (code & 0x3fU));
  } else {
    text += static_cast<char>(0xe0U | (code >> 12U));
    text += static_cast<char>(0x80U | ((code >> 6U) & 0x3fU));
    text += static_cast<char>(0x80U | (code & 0x3fU));
  }
  return text;
}

// What the escape that begins with the backslash at `at` stands for; `at` moves behind it.
std::string unescaped(const std::string& text, std::size_t& at) {
  const char c = at + 1 < text.size() ? text[at + 1] : '\\';
  at = std::min(at + 2, text.size());
  switch (c) {
    case 'n':
      return "\n";
    case 'r':
      return "\r";
    case 't':
      return "\t";
    case 'u': {
      constexpr std::size_t kDigits = 4;
      const std::string digits = text.substr(at, kDigits);
      const bool is_hex = std::all_of(digits.begin(), digits.end(), [](unsigned char digit) {
        return std::isxdigit(digit) != 0;
      });
      if (digits.size() != kDigits || !is_hex) {
        throw Malformed("it has a \\u without four hexadecimal digits");
      }
      at += kDigits;
      constexpr int kHexadecimal = 16;
      return in_utf8(static_cast<std::uint32_t>(std::stoul(digits, nullptr, kHexadecimal)));
    }
    default:
      return {c};
  }
}

// --- local.properties ---

// The lines of `text`, those joined that a backslash at the end continues.
std::vector<std::string> logical_lines(const std::string& text) {
  std::vector<std::string> lines;
  bool continues = false;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find_first_of("\r\n", begin), text.size());
    std::string line = text.substr(begin, end - begin);
    begin = end + (text.compare(end, 2, "\r\n") == 0 ? 2 : 1);
    line.erase(0, line.find_first_not_of(" \t\f"));
    const bool is_comment = !continues && !line.empty() && (line[0] == '#' || line[0] == '!');
    const std::size_t last = line.find_last_not_of('\\');
    const std::size_t backslashes = line.size() - (last == std::string::npos ? 0 : last + 1);
    const bool goes_on = !is_comment && backslashes % 2 == 1;
    if (goes_on) {
      line.pop_back();
    }
    if (continues) {
      lines.back() += line;
    } else if (!is_comment) {
      lines.push_back(line);
    }
    continues = goes_on;
  }
  return lines;
}

std::string unescaped_text(const std::string& text) {
  std::string plain;
  for (std::size_t at = 0; at < text.size();) {
    if (text[at] == '\\') {
      plain += unescaped(text, at);
    } else {
      plain += text[at++];
    }
  }
  return plain;
}

void read_property(const std::string& line, ProjectFile& file) {
  std::size_t end = 0;
  while (end < line.size() && std::string("=: \t\f").find(line[end]) == std::string::npos) {
    end += line[end] == '\\' ? 2 : 1;
  }
  end = std::min(end, line.size());
  const std::string key = unescaped_text(line.substr(0, end));
  if (key != "ndk.dir" && key != "sdk.dir") {
    return;
  }
  std::size_t begin = std::min(line.find_first_not_of(" \t\f", end), line.size());
  if (begin < line.size() && (line[begin] == '=' || line[begin] == ':')) {
    begin = std::min(line.find_first_not_of(" \t\f", begin + 1), line.size());
  }
  file.values[key] = trimmed(unescaped_text(line.substr(begin)));
}

// --- build.gradle ---

bool is_word(char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_'; }

// Goes through a build script from its front. Of the language it knows comments, texts and words.
class GradleReader {
 public:
  GradleReader(const std::string& text, GradleLanguage language, ProjectFile& file)
      : text_(text), is_kotlin_(language == GradleLanguage::kKotlin), file_(file) {}

  void read() {
    while (at_ < text_.size()) {
      const char c = text_[at_];
      if (skip_comment()) {
        continue;
      }
      if (is_quote(c)) {
        read_text(0);
      } else if (is_word(c)) {
        read_word();
        continue;
      } else if (c == '/' && !is_kotlin_ && text_may_begin()) {
        skip_slashy_text();
      } else {
        ++at_;
      }
      if (!is_blank(c) && c != '\n') {
        before_ = c;
      }
    }
  }

 private:
  static bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\r'; }
  static bool is_quote(char c) { return c == '"' || c == '\''; }
  bool is_at(const char* what) const {
    return text_.compare(at_, std::string(what).size(), what) == 0;
  }
  char here() const { return at_ < text_.size() ? text_[at_] : '\n'; }

  std::string line() const {
    const auto end = text_.begin() + static_cast<std::ptrdiff_t>(std::min(at_, text_.size()));
    return "line " + std::to_string(1 + std::count(text_.begin(), end, '\n'));
  }

  // Skips a comment that begins here. Those of Kotlin may hold others.
  bool skip_comment() {
    if (is_at("//")) {
      at_ = std::min(text_.find('\n', at_), text_.size());
      return true;
    }
    if (!is_at("/*")) {
      return false;
    }
    const std::string begin = line();
    std::size_t depth = 0;
    do {
      if (at_ >= text_.size()) {
        throw Malformed("the comment of " + begin + " has no end");
      }
      if (is_at("/*") && (depth == 0 || is_kotlin_)) {
        ++depth;
        at_ += 2;
      } else if (is_at("*/")) {
        --depth;
        at_ += 2;
      } else {
        ++at_;
      }
    } while (depth > 0);
    return true;
  }

  // Reads the text in quotes that begins here. Nothing when it is not a literal, such as
  // "${minor}".
  std::optional<std::string> read_text(int depth) {
    constexpr int kDeepest = 20;
    if (depth > kDeepest) {
      throw Malformed("its texts are nested too deeply in " + line());
    }
    const std::string begin = line();
    const char quote = here();
    const std::string end =
        is_at(std::string(3, quote).c_str()) ? std::string(3, quote) : std::string(1, quote);
    at_ += end.size();
    std::string value;
    bool is_literal = true;
    while (!is_at(end.c_str())) {
      if (at_ >= text_.size() || (end.size() == 1 && text_[at_] == '\n')) {
        throw Malformed("the text of " + begin + " has no end");
      }
      if (text_[at_] == '\\' && !(is_kotlin_ && end.size() == 3)) {
        value += unescaped(text_, at_);
      } else if (quote == '"' && text_[at_] == '$' && at_ + 1 < text_.size() &&
                 (text_[at_ + 1] == '{' || is_word(text_[at_ + 1]))) {
        is_literal = false;
        ++at_;
        skip_computation(depth);
      } else {
        value += text_[at_++];
      }
    }
    at_ += end.size();
    return is_literal ? std::optional(value) : std::nullopt;
  }

  // Skips what stands in the braces that open here, if any do.
  void skip_computation(int depth) {
    if (here() != '{') {
      return;
    }
    std::size_t braces = 0;
    do {
      if (at_ >= text_.size()) {
        throw Malformed("the computation in a text of " + line() + " has no end");
      }
      if (is_quote(text_[at_])) {
        read_text(depth + 1);
        continue;
      }
      braces += text_[at_] == '{' ? 1 : 0;
      braces -= text_[at_] == '}' ? 1 : 0;
      ++at_;
    } while (braces > 0);
  }

  // A "/" is not a division where nothing stands before it that could be divided.
  bool text_may_begin() const { return std::string("=(,~[{:").find(before_) != std::string::npos; }

  void skip_slashy_text() {
    std::size_t end = at_ + 1;
    while (end < text_.size() && text_[end] != '/' && text_[end] != '\n') {
      end += text_[end] == '\\' ? 2 : 1;
    }
    at_ = end < text_.size() && text_[end] == '/' ? end + 1 : at_ + 1;
  }

  void skip_blanks(bool over_lines) {
    while (at_ < text_.size()) {
      if (is_blank(text_[at_]) || (over_lines && text_[at_] == '\n')) {
        ++at_;
      } else if (!skip_comment()) {
        return;
      }
    }
  }

  void read_word() {
    const std::size_t begin = at_;
    while (is_word(here())) {
      ++at_;
    }
    const std::string word = text_.substr(begin, at_ - begin);
    before_ = word.back();
    for (const char* key : {"ndkVersion", "ndkPath"}) {
      std::string setter = std::string("setN") + (key + 1);
      if (word == key || word == setter) {
        read_setting(key);
      }
    }
  }

  // What follows the word `key`: a setting (= "text", ("text") or, in Groovy, "text"), or any other
  // use of the word.
  void read_setting(const std::string& key) {
    const std::string where = line();
    skip_blanks(false);
    const bool is_call = here() == '(';
    const bool is_assignment = here() == '=' && !is_at("==");
    if (is_call || is_assignment) {
      ++at_;
      skip_blanks(true);
    } else if (!is_quote(here()) && (is_kotlin_ || !is_word(here()))) {
      return;
    }
    const auto value = is_quote(here()) ? read_text(0) : std::nullopt;
    skip_blanks(false);
    const bool ends =
        at_ >= text_.size() || std::string("\n;}),").find(text_[at_]) != std::string::npos;
    if (value && ends && !value->empty()) {
      file_.values[key] = *value;
    } else {
      file_.notes.push_back(where + ": " + key + " is not a plain text, so it is passed over");
    }
  }

  const std::string& text_;
  bool is_kotlin_;
  ProjectFile& file_;
  std::size_t at_ = 0;
  char before_ = '=';  // the last character that was neither blank nor part of a comment
};

}  // namespace

ProjectFile read_local_properties(const std::string& text) {
  ProjectFile file;
  try {
    refuse_binary(text);
    for (const std::string& line : logical_lines(without_byte_order_mark(text))) {
      read_property(line, file);
    }
    return file;
  } catch (const Malformed& why) {
    return {{}, {}, why.what()};
  }
}

ProjectFile read_build_gradle(const std::string& text, GradleLanguage language) {
  ProjectFile file;
  try {
    refuse_binary(text);
    const std::string script = without_byte_order_mark(text);
    GradleReader(script, language, file).read();
    return file;
  } catch (const Malformed& why) {
    return {{}, {}, why.what()};
  }
}

}  // namespace ndk_integrate
