#include "console_host/package/script_run.h"

#include <optional>

#include "console_host/base/files.h"

namespace ndk_integrate {

namespace {

// The program that the first line of `script` names; "" when it names none.
std::string interpreter_of(const std::string& script) {
  constexpr std::size_t kMostOfLine = 256;
  const std::string line = read_ordinary_file(script, kMostOfLine).value_or("");
  const std::size_t begin = line.find_first_not_of(" \t", 2);
  if (line.compare(0, 2, "#!") != 0 || begin == std::string::npos) {
    return "";
  }
  return line.substr(begin, line.find_first_of(" \t\n", begin) - begin);
}

}  // namespace

std::string why_not_runnable(const std::string& what, const std::string& script) {
  if (!is_executable_file(script)) {
    return what + " " + script + " is missing or not executable";
  }
  const std::string interpreter = interpreter_of(script);
  if (!interpreter.empty() && !is_executable_file(interpreter)) {
    return what + " " + script + " is for " + interpreter + ", which is missing or not executable";
  }
  return "";
}

}  // namespace ndk_integrate
