#include "console_host/base/paths.h"

#include <filesystem>
#include <stdexcept>

namespace ndk_integrate {

std::string normal_path(const std::string& path) {
  std::string normal;
  for (const char c : path) {
    if (c != '/' || normal.empty() || normal.back() != '/') {
      normal += c;
    }
  }
  if (normal.size() > 1 && normal.back() == '/') {
    normal.pop_back();
  }
  return normal;
}

bool is_below(const std::string& path, const std::string& dir) {
  return path.compare(0, dir.size() + 1, dir + "/") == 0 &&
         (path.substr(dir.size()) + "/").find("/../") == std::string::npos;
}

std::string directory_of(const std::string& file) {
  const std::size_t end = file.rfind('/');
  return end == 0 ? "/" : file.substr(0, end);
}

std::string working_directory() {
  std::error_code none;
  return std::filesystem::current_path(none).string();
}

std::string absolute_path(const std::string& base, const std::string& text) {
  if (text.empty() || text[0] == '/') {
    return text;
  }
  if (base.empty()) {
    throw std::runtime_error("there is no working directory that " + text + " could be in");
  }
  if (text == ".") {
    return base;
  }
  const std::string relative = text.compare(0, 2, "./") == 0 ? text.substr(2) : text;
  return base + "/" + relative;
}

}  // namespace ndk_integrate
