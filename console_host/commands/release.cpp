#include "console_host/commands/release.h"

#include <optional>
#include <vector>

#include "console_host/base/errors.h"
#include "console_host/base/text.h"
#include "console_host/commands/output.h"
#include "console_host/ndk/release_numbers.h"

namespace ndk_integrate {

namespace {

void tell(const Release& release, const std::string& line, bool json) {
  if (!json) {
    say_always(line);
    return;
  }
  const std::vector<std::string> revisions = known_revisions(release);
  say_json({{"schema", 1},
            {"release", release_text(release)},
            {"numbers", numbers_text(release)},
            {"revision", revisions.empty() ? Json(nullptr) : Json(revisions.front())},
            {"prerelease", !release.prerelease.empty()}});
}

}  // namespace

ExitCode convert_release(const std::string& given, bool json) {
  const std::string text = trimmed(given);
  if (const auto release = parse_release(text)) {
    const std::vector<std::string> revisions = known_revisions(*release);
    tell(*release,
         numbers_text(*release) + (revisions.empty() ? "" : " (" + join(revisions, ", ") + ")"),
         json);
    return kDone;
  }
  if (const auto release = parse_revision(text)) {
    tell(*release, release_text(*release), json);
    return kDone;
  }
  throw UsageError("release: cannot understand '" + given +
                   "': write a release as r21e, or a revision as 21.4.7075529");
}

}  // namespace ndk_integrate
