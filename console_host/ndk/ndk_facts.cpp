#include "console_host/ndk/ndk_facts.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <filesystem>
#include <iterator>
#include <utility>

#include "console_host/base/files.h"
#include "console_host/base/paths.h"
#include "console_host/base/properties.h"
#include "console_host/base/text.h"
#include "console_host/ndk/release_numbers.h"
#include "console_host/services/known_properties.h"
#include "console_host/services/log.h"

namespace ndk_integrate {

namespace {

constexpr const char* kProperties = "source.properties";

std::string value(const Properties& properties, const char* key) {
  const auto found = properties.find(key);
  return found == properties.end() ? "" : found->second;
}

// True for "21.4.7075529", "21.4" and "29.0-beta4": a release number and an update that has a
// letter, and behind them what a third number or a beta adds.
bool is_usable_revision(const std::string& revision) {
  const std::vector<std::string> pieces = split(revision, ".");
  if (pieces.size() < 2) {
    return false;
  }
  const std::size_t end = pieces[1].find_first_not_of("0123456789");
  const std::string update = pieces[1].substr(0, end);
  const bool ends_there =
      end == std::string::npos || std::isalnum(static_cast<unsigned char>(pieces[1][end])) == 0;
  constexpr std::size_t kMostDigits = 9;  // as many as fit 32 bits whatever they are
  return is_number(pieces[0]) && pieces[0].size() <= kMostDigits && is_number(update) &&
         update.size() <= kMostDigits && std::stoi(update) <= kLastUpdate && ends_there;
}

// The release as the plug-in tells it. It reads what `properties` holds.
std::string release_of(const Plugin& plugin, const std::string& dir, const Properties& properties) {
  const HeldLog no_step_of_an_installation;
  const KnownProperties same_content(dir, kProperties, properties);
  return plugin.release(dir);
}

// The release that RELEASE.TXT of an NDK from before r11 begins with, such as "r10e"; "" when this
// is none.
std::string release_before_r11(const std::string& dir) {
  constexpr std::size_t kLongEnough = 64;
  const auto text = read_ordinary_file(dir + "/RELEASE.TXT", kLongEnough);
  if (!text) {
    return "";
  }
  const std::size_t begin = std::min(text->find_first_not_of(" \t\r\n"), text->size());
  std::size_t end = begin;
  while (end < text->size() && is_letter_or_digit((*text)[end])) {
    ++end;
  }
  const std::string word = text->substr(begin, end - begin);
  constexpr int kLast = 10;
  const auto release = parse_release(word);
  const bool is_old = release && release->number >= 1 && release->number <= kLast;
  return is_old && release_text(*release) == word ? word : "";
}

bool has_launcher(const std::string& dir) {
  return is_ordinary_file(dir + "/ndk-build") || is_ordinary_file(dir + "/ndk-build.cmd");
}

}  // namespace

NdkFacts read_facts(const Plugin& plugin, const std::string& dir) {
  NdkFacts facts;
  constexpr std::size_t kMost = 1 << 20;  // bytes, as read_properties() reads
  const auto text = read_ordinary_file(dir + "/" + kProperties, kMost);
  if (!text) {
    facts.lacks_properties = errno == ENOENT;
    if (facts.lacks_properties || !is_ordinary_file(dir + "/" + kProperties)) {
      facts.old_release = release_before_r11(dir);
    }
    return facts;
  }
  const Properties properties = parse_properties(*text, "=");
  facts.description = value(properties, "Pkg.Desc");
  facts.revision = value(properties, "Pkg.Revision");
  facts.prerelease =
      is_prerelease(facts.revision) || is_prerelease(value(properties, "Pkg.ReleaseName"));
  if (is_usable_revision(facts.revision)) {
    facts.release = release_of(plugin, dir, properties);
  }
  return facts;
}

std::string read_revision(const std::string& dir) {
  return value(read_properties(dir + "/" + kProperties, "="), "Pkg.Revision");
}

std::optional<std::string> readable_release(const Plugin& plugin, const std::string& dir) {
  return read_facts(plugin, normal_path(dir)).release;
}

bool looks_like_ndk(const std::string& dir) {
  return has_launcher(dir) &&
         (is_ordinary_file(dir + "/" + kProperties) || is_ordinary_file(dir + "/RELEASE.TXT"));
}

std::string newest_ndk_in(const std::string& dir) {
  std::vector<std::string> inside = subdirectories(dir, "");
  if (std::find(inside.begin(), inside.end(), dir + "/ndk") != inside.end()) {
    const std::vector<std::string> side_by_side = subdirectories(dir + "/ndk", "");
    inside.insert(inside.end(), side_by_side.begin(), side_by_side.end());
  }
  std::vector<std::string> found;
  std::copy_if(inside.begin(), inside.end(), std::back_inserter(found),
               [&](const std::string& one) { return one != dir && looks_like_ndk(one); });
  found = newest_first(found);
  const auto no_beta = std::find_if(found.begin(), found.end(), [](const std::string& one) {
    return !is_prerelease(read_revision(one));
  });
  return no_beta != found.end() ? *no_beta : found.empty() ? "" : found.front();
}

std::vector<std::string> newest_first(const std::vector<std::string>& dirs) {
  std::vector<std::pair<SortableRevision, std::string>> revisions;
  revisions.reserve(dirs.size());
  for (const std::string& dir : dirs) {
    revisions.emplace_back(sortable(read_revision(dir)), dir);
  }
  std::stable_sort(revisions.begin(), revisions.end(),
                   [](const auto& a, const auto& b) { return a.first > b.first; });
  std::vector<std::string> sorted;
  sorted.reserve(dirs.size());
  for (auto& [revision, dir] : revisions) {
    sorted.push_back(std::move(dir));
  }
  return sorted;
}

std::vector<std::string> subdirectories(const std::string& parent, const std::string& prefix) {
  namespace fs = std::filesystem;
  std::vector<std::string> found;
  std::error_code failure;
  for (fs::directory_iterator entry(parent, failure), end; entry != end; entry.increment(failure)) {
    std::error_code no_directory;
    if (entry->path().filename().string().compare(0, prefix.size(), prefix) == 0 &&
        entry->is_directory(no_directory)) {
      found.push_back(entry->path().string());
    }
  }
  if (failure == std::errc::permission_denied) {
    found.push_back(parent);  // to be judged itself, so that a person learns of it
  }
  std::sort(found.begin(), found.end());
  return found;
}

}  // namespace ndk_integrate
