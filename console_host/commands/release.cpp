#include "console_host/commands/release.h"

#include <algorithm>
#include <optional>
#include <vector>

#include "console_host/base/errors.h"
#include "console_host/base/text.h"
#include "console_host/commands/output.h"
#include "console_host/ndk/release_numbers.h"

namespace ndk_integrate {

namespace {

// `written` is the revision that was given; "" when it was a release.
void tell(const Release& release, const std::string& written, const std::string& line, bool json) {
  if (!json) {
    say_always(line);
    return;
  }
  std::vector<std::string> revisions = known_revisions(release);
  if (std::count(written.begin(), written.end(), '.') > 1) {
    revisions = {written};
  }
  say_json({{"schema", 1},
            {"release", release_text(release)},
            {"numbers", numbers_text(release)},
            {"revision", revisions.empty() ? Json(nullptr) : Json(revisions.front())},
            {"prerelease", !release.prerelease.empty()}});
}

}  // namespace

ExitCode convert_release(const std::string& text, bool json) {
  const std::string written = trimmed(text);
  if (const auto release = parse_release(written)) {
    const std::vector<std::string> revisions = known_revisions(*release);
    tell(*release, "",
         numbers_text(*release) + (revisions.empty() ? "" : " (" + join(revisions, ", ") + ")"),
         json);
    return kDone;
  }
  if (const auto release = parse_revision(written)) {
    tell(*release, written, release_text(*release), json);
    return kDone;
  }
  throw UsageError("release: cannot understand '" + text +
                   "': write a release as r21e, or a revision as 21.4.7075529");
}

}  // namespace ndk_integrate
