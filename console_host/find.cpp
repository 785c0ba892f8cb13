#include "console_host/find.h"

#include <algorithm>
#include <set>
#include <stdexcept>

#include "console_host/installation.h"
#include "console_host/judgement.h"
#include "console_host/output.h"
#include "console_host/search.h"
#include "console_host/session.h"

namespace {

Candidate candidate(const std::string& path) {
  return {path, absolute_path(working_directory(), path)};
}

std::vector<Candidate> candidates(const FindOptions& options) {
  std::vector<Candidate> all;
  if (options.search.empty()) {
    for (const std::string& dir : default_search()) {
      all.push_back(candidate(dir));
    }
    return all;
  }
  for (const std::string& list : options.search) {
    for (const std::string& dir : splitString(list, ";", false)) {
      all.push_back(candidate(dir));
    }
  }
  return all;
}

// What the plug-in is told to support where the user named nothing: the release that can be read in
// `candidate`.
std::string supported_for(const Plugin& plugin, const Candidate& candidate,
                          const std::optional<std::string>& supported) {
  return supported ? *supported : readable_release(plugin, candidate.dir).value_or("");
}

Judgement judge(const Plugin& plugin, const Candidate& candidate,
                const std::optional<std::string>& supported) {
  const std::string list = supported_for(plugin, candidate, supported);
  Session session({{{"NDK_PATH", candidate.dir}, {"NDK_SUPPORTED_VERSIONS", list}}, {}});
  plugin.validate_ndk_path(session.handle());
  return explain(plugin, candidate, session.get("NDK_PATH_STATUS"), list);
}

std::vector<Judgement> judge_all(const Plugin& plugin, const std::vector<Candidate>& candidates,
                                 const std::optional<std::string>& supported) {
  std::vector<Judgement> judgements;
  judgements.reserve(candidates.size());
  for (const Candidate& one : candidates) {
    judgements.push_back(judge(plugin, one, supported));
  }
  return judgements;
}

// The releases that can be read in the candidates, each once, as a list for the plug-in.
std::string readable_releases(const Plugin& plugin, const std::vector<Candidate>& candidates) {
  std::set<std::string> releases;
  for (const Candidate& one : candidates) {
    if (const auto release = readable_release(plugin, one.dir)) {
      releases.insert(*release);
    }
  }
  std::string list;
  for (const std::string& release : releases) {
    list += release + ";";
  }
  return list;
}

// The verdicts of a search, in its order. The plug-in resets the status after each candidate that
// it rejects, so they are taken from what it wrote on the way.
std::vector<std::string> verdicts(const Session& session) {
  std::vector<std::string> statuses;
  bool expected = false;
  for (const auto& [name, value] : session.writes()) {
    if (name == "NDK_PATH") {
      expected = !value.empty();
    } else if (name == "NDK_PATH_STATUS" && expected) {
      statuses.push_back(value);
      expected = false;
    }
  }
  return statuses;
}

// Lets the plug-in search, which stops at the first candidate that is good.
std::vector<Judgement> search(const Plugin& plugin, const std::vector<Candidate>& candidates,
                              const std::string& supported) {
  std::string search_path;
  for (const Candidate& one : candidates) {
    search_path += one.dir + ";";
  }
  Session session(
      {{{"NDK_DEFAULT_SEARCH_PATH_LINUX", search_path}, {"NDK_SUPPORTED_VERSIONS", supported}},
       {}});
  plugin.detect_ndk(session.handle());

  std::vector<Judgement> judgements;
  for (const std::string& status : verdicts(session)) {
    if (judgements.size() == candidates.size()) {
      throw std::runtime_error("the plug-in gave more verdicts than it was given directories");
    }
    judgements.push_back(explain(plugin, candidates[judgements.size()], status, supported));
  }
  return judgements;
}

// A directory whose name holds ";" cannot stand in the plug-in's search list, so it is judged by
// itself, between the searches of those before and behind it.
std::vector<Judgement> judge_until_found(const Plugin& plugin,
                                         const std::vector<Candidate>& candidates,
                                         const std::optional<std::string>& supported) {
  const std::string list = supported ? *supported : readable_releases(plugin, candidates);
  std::vector<Judgement> judgements;
  auto begin = candidates.begin();
  while (begin != candidates.end() && (judgements.empty() || !judgements.back().ok())) {
    if (begin->dir.find(';') != std::string::npos) {
      judgements.push_back(judge(plugin, *begin, list));
      ++begin;
      continue;
    }
    const auto end = std::find_if(begin, candidates.end(), [](const Candidate& one) {
      return one.dir.find(';') != std::string::npos;
    });
    const std::vector<Judgement> found = search(plugin, {begin, end}, list);
    judgements.insert(judgements.end(), found.begin(), found.end());
    begin = end;
  }
  return judgements;
}

std::string told(const Judgement& judgement) { return judgement.path + ": " + judgement.message; }

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
    say(told(judgement));
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
      complain(told(judgement));
    }
  }
  const std::size_t count = judgements.size();
  complain("no NDK found: " +
           (count == 0 ? "no directory in any of the usual places; --search names others"
                       : std::to_string(count) + (count == 1 ? " directory" : " directories") +
                             " looked at, none is good"));
}

}  // namespace

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
  const Judgement judgement = judge(plugin, candidate(options.dir), options.supported);
  if (options.json) {
    say_json(to_json(judgement));
  } else if (judgement.ok()) {
    say(told(judgement));
  } else {
    say_always(told(judgement));
  }
  return judgement.ok() ? kDone : kNotDone;
}
