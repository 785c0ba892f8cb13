// The contract's text services.
#include <cerrno>
#include <cstdlib>
#include <limits>

#include "console_host/base/text.h"
#include "console_host/services/service_observer.h"
#include "host/host.h"

using ndk_integrate::ServiceObserver;

// Empty pieces are dropped, so that a trailing ";" in a list of patterns matches nothing by
// accident.
std::vector<std::string> splitString(const std::string& text, const std::string& separator,
                                     bool /*flag*/) {
  return ndk_integrate::split(text, separator);
}

// An empty `from` occurs nowhere.
std::string replaceAllSubstrings(const std::string& text, const std::string& from,
                                 const std::string& to) {
  std::string result;
  std::size_t begin = 0;
  std::size_t count = 0;
  std::size_t found = from.empty() ? std::string::npos : text.find(from);
  while (found != std::string::npos) {
    result.append(text, begin, found - begin).append(to);
    begin = found + from.size();
    found = text.find(from, begin);
    ++count;
  }
  result.append(text, begin);
  if (ServiceObserver* observer = ndk_integrate::service_observer()) {
    observer->replaced(text, from, count, result);
  }
  return result;
}

// Leading blanks are skipped; a text that is no number gives 0, and one out of range the nearest
// 32-bit number.
int strtoint(const std::string& text) {
  using Limits = std::numeric_limits<int>;
  const long long number = std::strtoll(text.c_str(), nullptr, 10);  // saturates as well
  if (number > Limits::max()) {
    return Limits::max();
  }
  if (number < Limits::min()) {
    return Limits::min();
  }
  return static_cast<int>(number);
}

std::string inttostr(long long value) { return std::to_string(value); }
