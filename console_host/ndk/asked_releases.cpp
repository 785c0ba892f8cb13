#include "console_host/ndk/asked_releases.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <limits>
#include <utility>

#include "console_host/base/errors.h"
#include "console_host/base/text.h"

namespace ndk_integrate {

namespace {

constexpr long kLast = std::numeric_limits<long>::max();

// Where a release stands among all of them.
long place_of(int number, int update) { return long{number} * (kLastUpdate + 1) + update; }
long place_of(const Release& release) { return place_of(release.number, release.update); }

// A release or the first two numbers of a revision: what a range runs from and to.
std::optional<Release> bound(const std::string& text) {
  if (auto release = parse_release(text)) {
    return release;
  }
  return std::count(text.begin(), text.end(), '.') == 1 ? parse_revision(text) : std::nullopt;
}

bool has_update(const std::string& bound_text) {
  return bound_text.find('.') != std::string::npos ||
         std::isalpha(static_cast<unsigned char>(bound_text.back())) != 0;
}

struct Piece {
  std::size_t begin;  // in the list
  std::string text;
};

bool is_separator(char c) { return std::string(";, \t\r\n").find(c) != std::string::npos; }

// The entries of a list. Blanks around the ".." of a range do not separate.
std::vector<Piece> pieces_of(const std::string& list) {
  std::vector<Piece> pieces;
  bool only_blanks = true;  // between the last piece and this one
  for (std::size_t at = 0; at < list.size();) {
    if (is_separator(list[at])) {
      only_blanks = only_blanks && list[at] != ';' && list[at] != ',';
      ++at;
      continue;
    }
    std::size_t end = at;
    while (end < list.size() && !is_separator(list[end])) {
      ++end;
    }
    const std::string text = list.substr(at, end - at);
    const bool continues = !pieces.empty() && only_blanks &&
                           (ends_with(pieces.back().text, "..") || text.compare(0, 2, "..") == 0);
    if (continues) {
      pieces.back().text += text;
    } else {
      pieces.push_back({at, text});
    }
    only_blanks = true;
    at = end;
  }
  return pieces;
}

// The column, counted in characters from 1, of the byte `at`.
std::size_t column_of(const std::string& text, std::size_t at) {
  return 1 + static_cast<std::size_t>(std::count_if(
                 text.begin(), text.begin() + static_cast<std::ptrdiff_t>(at),
                 [](char c) { return (static_cast<unsigned char>(c) & 0xc0U) != 0x80U; }));
}

// True for what ndk_version_string can write for a release of an NDK.
bool can_match(const std::string& entry) {
  const auto release = parse_release(entry);
  return entry == "r-1" ||
         (release && release_text(*release) == entry && release->prerelease.empty());
}

}  // namespace

AskedReleases::AskedReleases(const std::string& what, const std::string& list) {
  for (const Piece& piece : pieces_of(list)) {
    const auto understood = entry(lower_case(piece.text));
    if (!understood) {
      throw UsageError(what + ": cannot understand '" + piece.text + "' in column " +
                       std::to_string(column_of(list, piece.begin)) + " of '" + list +
                       "'; a release is written as r21e, r21*, r21..r25, r21+, 27.0.12077973 or "
                       "27.*");
    }
    entries_.push_back(*understood);
  }
}

AskedReleases AskedReleases::exactly(const std::string& revision) {
  AskedReleases asked;
  Entry entry;
  entry.text = revision;
  entry.revision = lower_case(revision);
  const auto release = parse_revision(revision);
  entry.first = entry.last = release ? place_of(*release) : kLast;
  asked.entries_.push_back(entry);
  return asked;
}

AskedReleases AskedReleases::of_project(const std::string& version) {
  const std::string text = trimmed(version);
  const bool is_revision = std::count(text.begin(), text.end(), '.') >= 2 && !text.empty() &&
                           text.find_first_not_of("0123456789") == text.find('.') &&
                           text.find('.') > 0 && text.find_first_of("*+;,") == std::string::npos;
  return is_revision ? exactly(text) : AskedReleases("ndkVersion", text);
}

// `text` in lower case. Nothing when it cannot be understood.
std::optional<AskedReleases::Entry> AskedReleases::entry(const std::string& text) {
  Entry entry;
  entry.text = text;
  const std::size_t dots = text.find("..");
  if (dots != std::string::npos) {
    return range(text, dots);
  }
  if (ends_with(text, "+")) {
    const auto first = bound(text.substr(0, text.size() - 1));
    if (!first || !first->prerelease.empty()) {
      return std::nullopt;
    }
    entry.first = place_of(*first);
    entry.last = kLast;
    entry.text = release_text(*first) + "+";
    return entry;
  }
  if (ends_with(text, "*")) {
    const std::string before = text.substr(0, text.size() - (ends_with(text, ".*") ? 2 : 1));
    const auto release = bound(before);
    const bool is_whole = !before.empty() && !has_update(before);  // r21*, 27.*
    const bool is_one = ends_with(text, ".*") && before.find('.') != std::string::npos;  // 27.0.*
    if (!release || !release->prerelease.empty() || is_whole == is_one) {
      return std::nullopt;
    }
    entry.first = place_of(*release);
    entry.last = place_of(release->number, is_whole ? kLastUpdate : release->update);
    return entry;
  }
  if (const auto release = parse_release(text)) {
    entry.text = release_text(*release);
    entry.first = entry.last = place_of(*release);
    entry.prerelease = release->prerelease;
    entry.release = release_text({release->number, release->update, ""});
    return entry;
  }
  if (const auto release = parse_revision(text)) {
    entry.first = entry.last = place_of(*release);
    entry.prerelease = release->prerelease;
    if (std::count(text.begin(), text.end(), '.') > 1) {
      entry.revision = text;
    }
    return entry;
  }
  return std::nullopt;
}

// A second release without a letter stands for its last update.
std::optional<AskedReleases::Entry> AskedReleases::range(const std::string& text,
                                                         std::size_t dots) {
  const std::string from = text.substr(0, dots);
  const std::string to = text.substr(dots + 2);
  const auto first = bound(from);
  const auto last = bound(to);
  if (!first || !last || !first->prerelease.empty() || !last->prerelease.empty()) {
    return std::nullopt;
  }
  Entry entry;
  entry.first = place_of(*first);
  entry.last = has_update(to) ? place_of(*last) : place_of(last->number, kLastUpdate);
  entry.text = release_text(*first) + ".." + release_text(*last);
  return entry.first <= entry.last ? std::optional(entry) : std::nullopt;
}

std::string AskedReleases::plugin_list(const std::set<std::string>& releases) const {
  std::set<std::string> known;
  std::vector<std::string> list;
  const auto add = [&](const std::string& release) {
    if (known.insert(release).second) {
      list.push_back(release);
    }
  };
  for (const Entry& entry : entries_) {
    if (!entry.release.empty()) {
      add(entry.release);
      continue;
    }
    for (const std::string& text : releases) {
      const auto release = parse_release(text);
      if (release && place_of(*release) >= entry.first && place_of(*release) <= entry.last) {
        add(text);
      }
    }
  }
  return join(list, ";");
}

bool AskedReleases::accept(const std::string& release, const std::string& revision) const {
  const auto numbers = parse_release(release);
  return std::any_of(entries_.begin(), entries_.end(), [&](const Entry& entry) {
    if (!entry.revision.empty()) {
      return entry.revision == lower_case(revision);
    }
    if (!entry.prerelease.empty() && !ends_with(lower_case(revision), entry.prerelease)) {
      return false;
    }
    if (!entry.release.empty()) {
      return entry.release == release;
    }
    return numbers && place_of(*numbers) >= entry.first && place_of(*numbers) <= entry.last;
  });
}

std::optional<long> AskedReleases::distance(const Release& release) const {
  const long place = place_of(release);
  std::optional<long> nearest;
  for (const Entry& entry : entries_) {
    const long away = std::max({entry.first - place, place - entry.last, 0L});
    nearest = std::min(nearest.value_or(away), away);
  }
  return nearest;
}

std::string AskedReleases::text() const {
  std::vector<std::string> texts;
  for (const Entry& entry : entries_) {
    texts.push_back(entry.text);
  }
  return join(texts, ", ");
}

std::vector<std::string> entries_that_never_match(const std::string& list) {
  std::vector<std::string> warnings;
  for (const std::string& entry : split(list, ";")) {
    if (can_match(entry)) {
      continue;
    }
    const auto meant = parse_release(trimmed(entry));
    warnings.push_back(
        "'" + entry + "' can never match a release, which the plug-in writes as r21e: " +
        (meant && meant->prerelease.empty() ? "did you mean " + release_text(*meant) + "?"
                                            : "each entry is one release"));
  }
  return warnings;
}

}  // namespace ndk_integrate
