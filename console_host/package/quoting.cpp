#include "console_host/package/quoting.h"

#include "console_host/base/text.h"

namespace ndk_integrate {

namespace {

constexpr char kNone = '\0';

// The quote inside which the end of `beginning`, the beginning of a line, stands; kNone for none.
char quote_at_end(const std::string& beginning) {
  char quote = kNone;
  for (std::size_t i = 0; i < beginning.size(); ++i) {
    const char c = beginning[i];
    if (c == '\\' && quote != '\'') {
      ++i;
    } else if (c == quote) {
      quote = kNone;
    } else if (quote == kNone && (c == '"' || c == '\'')) {
      quote = c;
    }
  }
  return quote;
}

// True when some placeholder in a command of `text` does not stand between double quotes.
bool is_outside_double_quotes(const std::string& text, const std::string& placeholder) {
  for (const std::string& line : split(text, "\n")) {
    if (trimmed(line).compare(0, 1, "#") == 0) {
      continue;
    }
    for (std::size_t at = line.find(placeholder); at != std::string::npos;
         at = line.find(placeholder, at + 1)) {
      if (quote_at_end(line.substr(0, at)) != '"') {
        return true;
      }
    }
  }
  return false;
}

}  // namespace

std::string quoting_surprise(const std::string& file, const std::string& text,
                             const std::string& placeholder, const std::string& ndk_dir) {
  const std::string advice =
      "; make a link with a plain name to the NDK (ln -s) and give that with --ndk";
  if (text.find(placeholder) == std::string::npos) {
    return "";
  }
  if (ends_with(file, ".csh") && ndk_dir.find('!') != std::string::npos) {
    return file + " fails when it is used: csh takes the '!' in the name of the NDK, " + ndk_dir +
           ", for a command of its history, whatever the quotes (\"Event not found\")" + advice;
  }
  if (ndk_dir.find('\'') != std::string::npos && is_outside_double_quotes(text, placeholder)) {
    return file + " fails when it is used: the ' in the name of the NDK, " + ndk_dir +
           ", is a quote to the shell there" + advice;
  }
  return "";
}

}  // namespace ndk_integrate
