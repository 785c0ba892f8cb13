// The two ways in which the releases of NDKs are counted: "r21e" and "21.4.7075529".
#ifndef CONSOLE_HOST_NDK_RELEASE_NUMBERS_H
#define CONSOLE_HOST_NDK_RELEASE_NUMBERS_H

#include <cstddef>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

namespace ndk_integrate {

// One release: r21e is {21, 4}, r29-beta4 is {29, 0, "-beta4"}. The first issue of a release is its
// update 0, which has no letter; its update 1 is "b".
struct Release {
  int number = 0;
  int update = 0;
  std::string prerelease;  // "" when it is not one
};

constexpr int kLastUpdate = 25;  // "z"

// The release that the whole of `text` writes as "r21e", "21E" or "r29-beta4". Nothing when it
// writes none.
std::optional<Release> parse_release(const std::string& text);

// The release whose revision `text` is: "21.4.7075529", "21.4" or "29.0.14033849-beta4". Nothing
// when it is not one, such as "21" alone, or when its update has no letter.
std::optional<Release> parse_revision(const std::string& text);

// "r21e", and "21.4" with what a beta adds.
std::string release_text(const Release& release);
std::string numbers_text(const Release& release);

// The revisions that are known for `release`, most often none or one.
std::vector<std::string> known_revisions(const Release& release);

// True when `text`, a revision or a release's name, says that it is a beta or the like.
bool is_prerelease(const std::string& text);

// A revision in a form that sorts as its numbers do, of any length; a beta comes before its
// release. For each number: how many digits, the digits, whether nothing follows them, and the
// number at the end of what follows, as digits again.
using SortableRevision =
    std::vector<std::tuple<std::size_t, std::string, bool, std::size_t, std::string>>;

SortableRevision sortable(const std::string& revision);

}  // namespace ndk_integrate

#endif
