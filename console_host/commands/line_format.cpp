#include "console_host/commands/line_format.h"

#include <map>

#include "console_host/base/errors.h"
#include "console_host/base/escaping.h"

namespace ndk_integrate {

namespace {

std::map<std::string, std::string> values_of(const Judgement& judgement) {
  return {{"path", judgement.path},
          {"release", judgement.release.value_or("")},
          {"revision", judgement.revision.value_or("")},
          {"source", judgement.source},
          {"status", word_of(judgement.status)},
          {"reason", word_of(judgement.reason)},
          {"message", judgement.message},
          {"prerelease", judgement.prerelease ? "true" : "false"}};
}

[[noreturn]] void refuse(const std::string& format, std::size_t at, const std::string& what) {
  throw UsageError("--format: " + what + " in column " + std::to_string(at + 1) + " of '" + format +
                   "'");
}

// The character that the escape at `format`[at] stands for.
char unescaped(const std::string& format, std::size_t at) {
  switch (at + 1 < format.size() ? format[at + 1] : '\0') {
    case 't':
      return '\t';
    case 'n':
      return '\n';
    case '\\':
      return '\\';
    default:
      refuse(format, at, "cannot understand the escape (there are \\t, \\n and \\\\)");
  }
}

}  // namespace

std::string formatted_line(const std::string& format, const Judgement& judgement) {
  const std::map<std::string, std::string> values = values_of(judgement);
  std::string line;
  for (std::size_t at = 0; at < format.size();) {
    const std::string pair = format.substr(at, 2);
    if (format[at] == '\\') {
      line += unescaped(format, at);
      at += 2;
    } else if (pair == "{{" || pair == "}}") {
      line += pair[0];
      at += 2;
    } else if (format[at] == '{') {
      const std::size_t end = format.find('}', at);
      const auto value = values.find(format.substr(at + 1, end - at - 1));
      if (end == std::string::npos || value == values.end()) {
        refuse(format, at,
               "unknown placeholder (there are {path}, {release}, {revision}, {source}, {status}, "
               "{reason}, {message} and {prerelease}; a brace is written as {{)");
      }
      line += one_line(value->second);
      at = end + 1;
    } else {
      line += format[at++];
    }
  }
  return line + "\n";
}

}  // namespace ndk_integrate
