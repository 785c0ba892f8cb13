#include "console_host/base/errors.h"

#include <cctype>
#include <cerrno>
#include <cstring>
#include <system_error>

#include "console_host/base/system_call.h"

namespace ndk_integrate {

std::string system_error_text(int number) {
  std::string text = std::strerror(number);
  text[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(text[0])));
  return text;
}

void throw_system_error(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), "cannot " + what);
}

std::string describe_current_exception() {
  try {
    throw;
  } catch (const std::exception& exception) {
    return exception.what();
  } catch (...) {
    return "the plug-in threw an exception of an unknown type";
  }
}

}  // namespace ndk_integrate
