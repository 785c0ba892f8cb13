#include "console_host/base/properties.h"

#include <fstream>
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

Properties read_properties(const std::string& file, const std::string& separator) {
  Properties properties;
  if (!is_ordinary_file(file)) {
    return properties;
  }
  constexpr std::size_t kMost = 1 << 20;  // bytes; nobody's property file is longer
  std::string text(kMost, '\0');
  std::ifstream file_in(file, std::ios::binary);
  file_in.read(text.data(), kMost);
  text.resize(static_cast<std::size_t>(file_in.gcount()));
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

}  // namespace ndk_integrate
