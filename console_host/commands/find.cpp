#include "console_host/commands/find.h"

#include <algorithm>

#include "console_host/base/errors.h"
#include "console_host/base/text.h"
#include "console_host/commands/output.h"
#include "console_host/ndk/search.h"
#include "console_host/ndk/usual_places.h"

namespace ndk_integrate {

namespace {

std::vector<Candidate> candidates(const FindOptions& options) {
  std::vector<Candidate> all;
  if (options.search.empty()) {
    for (const std::string& dir : usual_places()) {
      all.push_back(candidate_of(dir));
    }
    return all;
  }
  for (const std::string& list : options.search) {
    for (const std::string& dir : split(list, ";")) {
      all.push_back(candidate_of(dir));
    }
  }
  return all;
}

void tell_found(const std::vector<Judgement>& judgements, const Judgement* found, bool json) {
  if (json) {
    Json objects = Json::array();
    for (const Judgement& judgement : judgements) {
      objects.push_back(to_json(judgement));
    }
    say_json({{"schema", 1},
              {"ndk", found == nullptr ? Json(nullptr) : Json(found->path)},
              {"candidates", objects}});
    return;
  }
  for (const Judgement& judgement : judgements) {
    say(line_of(judgement));
  }
  if (found != nullptr) {
    say("NDK found: " + found->path);
    if (is_quiet()) {
      print(found->path + "\n");  // for programs, so as it stands
    }
    return;
  }
  if (is_quiet()) {
    for (const Judgement& judgement : judgements) {
      complain(line_of(judgement));
    }
  }
  const std::size_t count = judgements.size();
  complain("no NDK found: " +
           (count == 0 ? "no directory in any of the usual places; --search names others"
                       : std::to_string(count) + (count == 1 ? " directory" : " directories") +
                             " looked at, none is good"));
}

}  // namespace

Json to_json(const Judgement& judgement) {
  return {{"schema", 1},
          {"path", judgement.path},
          {"status", word_of(judgement.status)},
          {"reason", word_of(judgement.reason)},
          {"release", optional_text(judgement.release)},
          {"revision", optional_text(judgement.revision)},
          {"message", judgement.message}};
}

std::string line_of(const Judgement& judgement) {
  return judgement.path + ": " + judgement.message;
}

void require_directories(const FindOptions& options) {
  const auto names_none = [](const std::string& list) {
    return list.find_first_not_of(';') == std::string::npos;
  };
  if (!options.search.empty() &&
      std::all_of(options.search.begin(), options.search.end(), names_none)) {
    throw UsageError("--search names no directory");
  }
}

ExitCode find(const Plugin& plugin, const FindOptions& options) {
  const std::vector<Candidate> all = candidates(options);
  const std::vector<Judgement> judgements = options.all
                                                ? judge_all(plugin, all, options.supported)
                                                : judge_until_found(plugin, all, options.supported);
  const auto good = std::find_if(judgements.begin(), judgements.end(),
                                 [](const Judgement& judgement) { return judgement.ok(); });
  const Judgement* found = good == judgements.end() ? nullptr : &*good;
  tell_found(judgements, found, options.json);
  return found == nullptr ? kNotDone : kDone;
}

ExitCode check(const Plugin& plugin, const CheckOptions& options) {
  const Judgement judgement = judge(plugin, candidate_of(options.dir), options.supported);
  if (options.json) {
    say_json(to_json(judgement));
  } else if (judgement.ok()) {
    say(line_of(judgement));
  } else {
    say_always(line_of(judgement));
  }
  return judgement.ok() ? kDone : kNotDone;
}

}  // namespace ndk_integrate
