#include "console_host/base/properties.h"

#include <sstream>

#include "console_host/base/files.h"
#include "console_host/base/text.h"

namespace ndk_integrate {

namespace {

bool is_comment(const std::string& line) {
  const std::string text = trimmed(line);
  return !text.empty() && (text[0] == '#' || text[0] == '!');
}

}  // namespace

Properties parse_properties(const std::string& text, const std::string& separator) {
  Properties properties;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    const std::size_t end_of_key = line.find(separator);
    if (!is_comment(line) && end_of_key != std::string::npos) {
      properties.emplace(trimmed(line.substr(0, end_of_key)),
                         trimmed(line.substr(end_of_key + separator.size())));
    }
  }
  return properties;
}

Properties read_properties(const std::string& file, const std::string& separator) {
  constexpr std::size_t kMost = 1 << 20;  // bytes; nobody's property file is longer
  return parse_properties(read_ordinary_file(file, kMost).value_or(""), separator);
}

}  // namespace ndk_integrate
