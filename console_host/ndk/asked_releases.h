// The releases that someone asks for, as `--supported` and a project's ndkVersion write them.
#ifndef CONSOLE_HOST_NDK_ASKED_RELEASES_H
#define CONSOLE_HOST_NDK_ASKED_RELEASES_H

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "console_host/ndk/release_numbers.h"

namespace ndk_integrate {

class AskedReleases {
 public:
  // Understands a list, separated by ";", "," or blanks, of
  //   r21e 21E         a release; without a letter its first issue
  //   r29-beta4        a beta of it
  //   r21* 27.* 27.0.* any update of it, any revision that begins so
  //   r21..r25         from the first to the last update of the second
  //   r21+             that one and all later ones
  //   21.4 27.0.1207   any revision that begins with the two numbers; that revision
  // Throws UsageError, which begins with `what`, names the text that cannot be understood and its
  // column.
  AskedReleases(const std::string& what, const std::string& list);

  // Asks for what a project's ndkVersion says: a revision, whatever follows its numbers, or one of
  // the forms above. Throws UsageError when it is neither.
  static AskedReleases of_project(const std::string& version);

  // Asks for the revision `revision`, whatever its form is.
  static AskedReleases exactly(const std::string& revision);

  // What the plug-in is to be told to support, when `releases` are those that can be read in the
  // directories that it judges. Its list has neither ranges nor revisions.
  std::string plugin_list(const std::set<std::string>& releases) const;

  // True when the NDK that the plug-in takes for `release`, whose revision is `revision`, is asked
  // for.
  bool accept(const std::string& release, const std::string& revision) const;

  // How far the NDK is from what is asked for, in updates; 0 when it is of a release asked for.
  // Nothing when nothing is asked for.
  std::optional<long> distance(const Release& release) const;

  // "r10e, r21..r25"
  std::string text() const;

 private:
  struct Entry {
    std::string text;        // as a person is told it
    std::string release;     // of a single release, as the plug-in writes it; else ""
    std::string revision;    // of a single revision; else ""
    std::string prerelease;  // "-beta4", where one is asked for
    long first = 0;          // the releases from this to `last`, each as place_of() counts it
    long last = 0;
  };

  AskedReleases() = default;
  static std::optional<Entry> entry(const std::string& text);
  static std::optional<Entry> range(const std::string& text, std::size_t dots);

  std::vector<Entry> entries_;
};

// The entries of NDK_SUPPORTED_VERSIONS, `list`, that no release can ever match, since the plug-in
// compares texts; each with what is wrong, as a warning: "'R21E' can never match: ...".
std::vector<std::string> entries_that_never_match(const std::string& list);

}  // namespace ndk_integrate

#endif
