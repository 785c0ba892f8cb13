#include "console_host/base/similar_names.h"

#include <algorithm>
#include <numeric>

#include "console_host/base/text.h"

namespace ndk_integrate {

namespace {

// The letters and digits of `name`, in lower case.
std::string core(const std::string& name) {
  std::string letters;
  std::copy_if(name.begin(), name.end(), std::back_inserter(letters), is_letter_or_digit);
  return lower_case(letters);
}

// How many characters have to be added, removed or replaced to make `to` of `from`.
std::size_t distance(const std::string& from, const std::string& to) {
  std::vector<std::size_t> row(to.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (const char c : from) {
    std::size_t before = row[0]++;
    for (std::size_t i = 1; i <= to.size(); ++i) {
      const std::size_t replaced = before + (c == to[i - 1] ? 0 : 1);
      before = row[i];
      row[i] = std::min({row[i] + 1, row[i - 1] + 1, replaced});
    }
  }
  return row.back();
}

// True when `name` is what is left of `whole` without some of its characters, but for the first.
bool is_shortened(const std::string& name, const std::string& whole) {
  constexpr std::size_t kFewest = 3;
  auto next = name.begin();
  for (const char c : whole) {
    next += next != name.end() && *next == c ? 1 : 0;
  }
  return name.size() >= kFewest && name[0] == whole[0] && next == name.end();
}

}  // namespace

std::string similar_name(const std::string& name, const std::vector<std::string>& known) {
  constexpr std::size_t kLettersPerSlip = 3;
  const std::string given = core(name);
  std::string nearest;
  std::size_t least = std::string::npos;
  for (const std::string& candidate : known) {
    const std::string wanted = core(candidate);
    const std::size_t slips = distance(given, wanted);
    const bool is_near = slips <= std::max(given.size(), wanted.size()) / kLettersPerSlip;
    if ((is_near || is_shortened(given, wanted)) && slips < least) {
      nearest = candidate;
      least = slips;
    }
  }
  return nearest;
}

std::string did_you_mean(const std::string& name, const std::vector<std::string>& known) {
  const std::string meant = similar_name(name, known);
  return meant.empty() ? "" : " (did you mean '" + meant + "'?)";
}

}  // namespace ndk_integrate
