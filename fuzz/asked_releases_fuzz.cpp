// Any text as what --supported asks for, and any release and revision of an NDK.
// Input: the list, "|", the revision of an NDK.
#include "console_host/ndk/asked_releases.h"

#include <algorithm>

#include "console_host/base/errors.h"
#include "console_host/base/text.h"
#include "fuzz/expect.h"
#include "fuzz/input.h"

namespace {

using namespace ndk_integrate;  // NOLINT(google-build-using-namespace): this file is the program

bool lists(const std::string& list, const std::string& release) {
  const std::vector<std::string> entries = split(list, ";");
  return std::find(entries.begin(), entries.end(), release) != entries.end();
}

// What must hold for every list that is understood, of an NDK whose release can be read.
std::vector<std::string> broken_rules(const AskedReleases& asked, const Release& release,
                                      const std::string& revision) {
  std::vector<std::string> broken;
  const std::string text = release_text({release.number, release.update, ""});
  const std::string list = asked.plugin_list({text});
  if (!entries_that_never_match(list).empty()) {
    broken.push_back("the plug-in gets a list with an entry that never matches: " + list);
  }
  if (asked.accept(text, revision) && !lists(list, text)) {
    broken.push_back(text + " is accepted, but the plug-in is not told so: " + list);
  }
  if (asked.accept(text, revision) && asked.distance(release) != 0) {
    broken.push_back(text + " is accepted, but not near");
  }
  return broken;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const std::string list = input.text();
  const std::string revision = input.rest();
  const auto release = parse_revision(revision);
  try {
    const AskedReleases asked("--supported", list);
    if (release) {
      expect_same("the rules", {}, broken_rules(asked, *release, revision));
      // Its own text is understood as the same again.
      const AskedReleases again("--supported", asked.text());
      expect_same("the text", {asked.text()}, {again.text()});
    }
  } catch (const UsageError&) {
    // A list that cannot be understood is told so.
  }
  return 0;
}
