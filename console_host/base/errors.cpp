#include "console_host/base/errors.h"

#include <cctype>
#include <cstring>

namespace ndk_integrate {

std::string system_error_text(int number) {
  std::string text = std::strerror(number);
  text[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(text[0])));
  return text;
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
