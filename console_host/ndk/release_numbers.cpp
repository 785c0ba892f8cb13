#include "console_host/ndk/release_numbers.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <sstream>

#include "console_host/base/text.h"
#include "ndk_releases_data.h"

namespace ndk_integrate {

namespace {

constexpr std::size_t kMostDigits = 9;  // as many as fit 32 bits whatever they are

// Takes digits from `text` at `begin`, which moves behind them. Nothing where there are none, or
// too many.
std::optional<int> take_number(const std::string& text, std::size_t& begin) {
  const std::size_t end = std::min(text.find_first_not_of("0123456789", begin), text.size());
  if (end == begin || end - begin > kMostDigits) {
    return std::nullopt;
  }
  const int number = std::stoi(text.substr(begin, end - begin));
  begin = end;
  return number;
}

// True for "-beta4" and for "".
bool is_suffix(const std::string& text) {
  return text.empty() || (text.size() > 1 && text[0] == '-' &&
                          std::isalpha(static_cast<unsigned char>(text[1])) != 0 &&
                          std::all_of(text.begin() + 1, text.end(),
                                      [](unsigned char c) { return std::isalnum(c) != 0; }));
}

}  // namespace

std::optional<Release> parse_release(const std::string& text) {
  const std::string lower = lower_case(text);
  std::size_t at = !lower.empty() && lower[0] == 'r' ? 1 : 0;
  Release release;
  const auto number = take_number(lower, at);
  if (!number) {
    return std::nullopt;
  }
  release.number = *number;
  if (at < lower.size() && lower[at] >= 'b' && lower[at] <= 'z') {
    release.update = lower[at] - 'a';
    ++at;
  }
  release.prerelease = lower.substr(at);
  return is_suffix(release.prerelease) ? std::optional(release) : std::nullopt;
}

std::optional<Release> parse_revision(const std::string& text) {
  const std::string lower = lower_case(text);
  std::size_t at = 0;
  const auto number = take_number(lower, at);
  if (!number || at == lower.size() || lower[at] != '.') {
    return std::nullopt;
  }
  ++at;
  const auto update = take_number(lower, at);
  if (!update || *update > kLastUpdate) {
    return std::nullopt;
  }
  while (at < lower.size() && lower[at] == '.') {
    at = std::min(lower.find_first_not_of("0123456789", at + 1), lower.size());
    if (lower[at - 1] == '.') {
      return std::nullopt;
    }
  }
  const std::string suffix = lower.substr(at);
  return is_suffix(suffix) ? std::optional(Release{*number, *update, suffix}) : std::nullopt;
}

std::string release_text(const Release& release) {
  std::string text = "r" + std::to_string(release.number);
  if (release.update > 0) {
    text += static_cast<char>('a' + release.update);
  }
  return text + release.prerelease;
}

std::string numbers_text(const Release& release) {
  return std::to_string(release.number) + "." + std::to_string(release.update) + release.prerelease;
}

std::vector<std::string> known_revisions(const Release& release) {
  std::vector<std::string> revisions;
  std::istringstream lines(kNdkReleases);
  for (std::string line; std::getline(lines, line);) {
    const std::vector<std::string> columns = split(line, "\t");
    if (columns.size() == 2 && columns[0] == release_text(release)) {
      revisions.push_back(columns[1]);
    }
  }
  return revisions;
}

bool is_prerelease(const std::string& text) {
  const std::string lower = lower_case(text);
  constexpr std::array<const char*, 5> kWords = {"alpha", "beta", "rc", "canary", "preview"};
  return std::any_of(kWords.begin(), kWords.end(),
                     [&](const char* word) { return lower.find(word) != std::string::npos; });
}

SortableRevision sortable(const std::string& revision) {
  const char* const digits = "0123456789";
  const auto number = [](const std::string& text) {
    return text.substr(std::min(text.find_first_not_of('0'), text.size()));
  };
  SortableRevision sortable;
  for (const std::string& piece : split(revision, ".")) {
    const std::size_t end = std::min(piece.find_first_not_of(digits), piece.size());
    const std::string front = number(piece.substr(0, end));
    const std::size_t last = piece.find_last_not_of(digits);
    const std::string back =
        end == piece.size() || last == std::string::npos ? "" : number(piece.substr(last + 1));
    sortable.emplace_back(front.size(), front, end == piece.size(), back.size(), back);
  }
  return sortable;
}

}  // namespace ndk_integrate
