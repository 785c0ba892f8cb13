// The contract's reader of property files.
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <utility>

#include "host/host.h"

namespace {

using Properties = std::map<std::string, std::string>;

// `text` without blanks, tabs and carriage returns at its ends.
std::string trimmed(const std::string& text) {
  const char* const blanks = " \t\r";
  const std::size_t first = text.find_first_not_of(blanks);
  if (first == std::string::npos) {
    return "";
  }
  return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

bool is_comment(const std::string& line) {
  const std::string text = trimmed(line);
  return !text.empty() && (text[0] == '#' || text[0] == '!');
}

// A file that cannot be read has no properties, nor has a pipe or a device, which may have no end.
std::unique_ptr<Properties> read_properties(const std::string& file, const std::string& separator) {
  auto properties = std::make_unique<Properties>();
  if (file_exists(file, false) == 0) {
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
      // The first line of a key counts.
      properties->emplace(trimmed(line.substr(0, end_of_key)),
                          trimmed(line.substr(end_of_key + separator.size())));
    }
  }
  return properties;
}

}  // namespace

IniDb::IniDb(std::string dir, std::string file, std::string separator)
    : host_data(read_properties(dir + "/" + file, separator).release()) {}

IniDb::~IniDb() { delete static_cast<Properties*>(host_data); }

std::string IniDb::value(std::string key) {
  const auto& properties = *static_cast<const Properties*>(host_data);
  const auto found = properties.find(trimmed(key));
  return found == properties.end() ? "" : found->second;
}
