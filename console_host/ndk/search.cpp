#include "console_host/ndk/search.h"

#include <algorithm>
#include <set>
#include <stdexcept>

#include "console_host/base/paths.h"
#include "console_host/base/text.h"

namespace ndk_integrate {

namespace {

// What the plug-in is told to support where the user named nothing: the release that can be read in
// `candidate`.
std::string supported_for(const Plugin& plugin, const Candidate& candidate,
                          const std::optional<std::string>& supported) {
  return supported ? *supported : readable_release(plugin, candidate.dir).value_or("");
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

// Searches the candidates in `session`, whose variables name them.
std::vector<Judgement> search_candidates(const Plugin& plugin, Session& session,
                                         const std::vector<Candidate>& candidates) {
  plugin.detect_ndk(session.handle());
  std::vector<Judgement> judgements;
  for (const std::string& status : verdicts(session)) {
    if (judgements.size() == candidates.size()) {
      throw std::runtime_error("the plug-in gave more verdicts than it was given directories");
    }
    judgements.push_back(explain(plugin, candidates[judgements.size()], status,
                                 session.get("NDK_SUPPORTED_VERSIONS")));
  }
  return judgements;
}

bool fits_a_list(const Candidate& candidate) {
  return candidate.dir.find(';') == std::string::npos;
}

std::vector<Judgement> search_in_new_session(const Plugin& plugin,
                                             const std::vector<Candidate>& candidates,
                                             const std::string& supported) {
  std::string search_path;
  for (const Candidate& one : candidates) {
    search_path += one.dir + ";";
  }
  Session session(
      {{{"NDK_DEFAULT_SEARCH_PATH_LINUX", search_path}, {"NDK_SUPPORTED_VERSIONS", supported}},
       {}});
  return search_candidates(plugin, session, candidates);
}

}  // namespace

Candidate candidate_of(const std::string& path) {
  return {path, absolute_path(working_directory(), path)};
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

// A directory whose name holds ";" cannot stand in the plug-in's search list, so it is judged by
// itself, between the searches of those before and behind it.
std::vector<Judgement> judge_until_found(const Plugin& plugin,
                                         const std::vector<Candidate>& candidates,
                                         const std::optional<std::string>& supported) {
  const std::string list = supported ? *supported : readable_releases(plugin, candidates);
  std::vector<Judgement> judgements;
  auto begin = candidates.begin();
  while (begin != candidates.end() && (judgements.empty() || !judgements.back().ok())) {
    if (!fits_a_list(*begin)) {
      judgements.push_back(judge(plugin, *begin, list));
      ++begin;
      continue;
    }
    const auto end = std::find_if_not(begin, candidates.end(), fits_a_list);
    const std::vector<Judgement> found = search_in_new_session(plugin, {begin, end}, list);
    judgements.insert(judgements.end(), found.begin(), found.end());
    begin = end;
  }
  return judgements;
}

std::vector<Judgement> search(const Plugin& plugin, Session& session) {
  std::vector<Candidate> candidates;
  for (const std::string& dir : split(session.get("NDK_DEFAULT_SEARCH_PATH_LINUX"), ";")) {
    candidates.push_back({dir, dir});
  }
  return search_candidates(plugin, session, candidates);
}

}  // namespace ndk_integrate
