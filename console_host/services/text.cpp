// The contract's text services.
#include <cerrno>
#include <cstdlib>
#include <limits>
#include <utility>

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
  ndk_integrate::Replaced replaced = ndk_integrate::replace_all(text, from, to);
  if (ServiceObserver* observer = ndk_integrate::service_observer()) {
    observer->replaced(text, from, replaced.count, replaced.text);
  }
  return std::move(replaced.text);
}

// Leading blanks are skipped; a text that is not a number gives 0, and one out of range the
// nearest 32-bit number.
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
