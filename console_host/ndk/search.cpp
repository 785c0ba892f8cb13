#include "console_host/ndk/search.h"

#include <algorithm>
#include <functional>
#include <set>
#include <stdexcept>
#include <tuple>

#include "console_host/base/paths.h"
#include "console_host/base/text.h"
#include "console_host/services/read_only.h"

namespace ndk_integrate {

namespace {

NdkFacts facts_of(const Plugin& plugin, const Candidate& candidate) {
  return read_facts(plugin, normal_path(candidate.dir));
}

// What the plug-in is told to support: of what is asked for, the releases in `facts`; without that,
// all of them.
std::string supported_list(const Request& request, const std::vector<NdkFacts>& facts) {
  std::set<std::string> releases;
  for (const NdkFacts& one : facts) {
    if (one.release) {
      releases.insert(*one.release);
    }
  }
  if (request.releases) {
    return request.releases->plugin_list(releases);
  }
  std::string list;
  for (const std::string& release : releases) {
    list += release + ";";
  }
  return list;
}

using Explain = std::function<Judgement(std::size_t number, const std::string& plugin_status)>;

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

// Lets the plug-in search in `session`, whose variables name `count` candidates.
std::vector<Judgement> run_search(const Plugin& plugin, Session& session, std::size_t count,
                                  const Explain& explain) {
  plugin.detect_ndk(session.handle());
  std::vector<Judgement> judgements;
  for (const std::string& status : verdicts(session)) {
    if (judgements.size() == count) {
      throw std::runtime_error("the plug-in gave more verdicts than it was given directories");
    }
    judgements.push_back(explain(judgements.size(), status));
  }
  return judgements;
}

bool fits_a_list(const Candidate& candidate) {
  return candidate.dir.find(';') == std::string::npos;
}

// Its release, also one that the plug-in does not tell, as that of "11".
std::optional<Release> release_of(const Judgement& judgement) {
  if (judgement.release) {
    return parse_release(*judgement.release);
  }
  return is_number(judgement.revision.value_or("")) ? parse_release(*judgement.revision)
                                                    : std::nullopt;
}

// How far `release` is from what is asked for, in updates; 0 where nothing is.
long distance(const Release& release, const Request& request) {
  std::optional<AskedReleases> asked = request.releases;
  if (request.lock) {
    asked = AskedReleases::exactly(request.lock->revision);
  }
  return asked ? asked->distance(release).value_or(0) : 0;
}

bool is_newer(const Judgement& one, const Judgement& other) {
  return sortable(one.revision.value_or("")) > sortable(other.revision.value_or(""));
}

// Candidates that the plug-in searches in one go, with the facts of each.
struct Slice {
  std::vector<Candidate> candidates;
  std::vector<NdkFacts> facts;
};

// The candidates from number `begin` on up to one at which the plug-in may stop though the host
// does not, or whose name cannot stand in the plug-in's search list.
Slice next_slice(const Plugin& plugin, const std::vector<Candidate>& candidates,
                 const Request& request, std::size_t begin) {
  constexpr std::size_t kMost = 64;  // so that a list of releases that all differ stays short
  Slice slice;
  for (std::size_t i = begin; i < candidates.size() && slice.candidates.size() < kMost; ++i) {
    if (!fits_a_list(candidates[i]) && !slice.candidates.empty()) {
      break;
    }
    slice.candidates.push_back(candidates[i]);
    slice.facts.push_back(facts_of(plugin, candidates[i]));
    if (!fits_a_list(candidates[i]) || may_be_passed_over(slice.facts.back(), request)) {
      break;
    }
  }
  return slice;
}

Judgement judge(const Plugin& plugin, const Candidate& candidate, const NdkFacts& facts,
                const Request& request) {
  Session session(
      {{{"NDK_PATH", candidate.dir}, {"NDK_SUPPORTED_VERSIONS", supported_list(request, {facts})}},
       {}});
  const ReadOnlyAccepted accepted(request.read_only);
  plugin.validate_ndk_path(session.handle());
  return explain(plugin, candidate, facts, session.get("NDK_PATH_STATUS"), request);
}

std::vector<Judgement> search_slice(const Plugin& plugin, const Slice& slice,
                                    const Request& request) {
  if (!fits_a_list(slice.candidates.front())) {
    return {judge(plugin, slice.candidates.front(), slice.facts.front(), request)};
  }
  std::string search_path;
  for (const Candidate& one : slice.candidates) {
    search_path += one.dir + ";";
  }
  Session session({{{"NDK_DEFAULT_SEARCH_PATH_LINUX", search_path},
                    {"NDK_SUPPORTED_VERSIONS", supported_list(request, slice.facts)}},
                   {}});
  const ReadOnlyAccepted accepted(request.read_only);
  return run_search(
      plugin, session, slice.candidates.size(), [&](std::size_t number, const std::string& status) {
        return explain(plugin, slice.candidates[number], slice.facts[number], status, request);
      });
}

}  // namespace

Candidate candidate_of(const std::string& path, const std::string& source) {
  const bool is_absolute = !path.empty() && path[0] == '/';
  return {path, is_absolute ? path : absolute_path(working_directory(), path), source};
}

Judgement judge(const Plugin& plugin, const Candidate& candidate,
                const std::optional<std::string>& supported) {
  if (!supported) {
    return judge(plugin, candidate, Request());
  }
  Session session({{{"NDK_PATH", candidate.dir}, {"NDK_SUPPORTED_VERSIONS", *supported}}, {}});
  plugin.validate_ndk_path(session.handle());
  return explain(plugin, candidate, session.get("NDK_PATH_STATUS"), *supported);
}

Judgement judge(const Plugin& plugin, const Candidate& candidate, const Request& request) {
  return judge(plugin, candidate, facts_of(plugin, candidate), request);
}

std::vector<Judgement> judge_all(const Plugin& plugin, const std::vector<Candidate>& candidates,
                                 const Request& request) {
  std::vector<Judgement> judgements;
  judgements.reserve(candidates.size());
  for (const Candidate& one : candidates) {
    judgements.push_back(judge(plugin, one, request));
  }
  return judgements;
}

std::vector<Judgement> judge_until_found(const Plugin& plugin,
                                         const std::vector<Candidate>& candidates,
                                         const Request& request) {
  std::vector<Judgement> judgements;
  while (judgements.size() < candidates.size()) {
    const Slice slice = next_slice(plugin, candidates, request, judgements.size());
    std::vector<Judgement> found = search_slice(plugin, slice, request);
    if (found.empty()) {
      throw std::runtime_error("the plug-in judged none of the directories that it was given");
    }
    judgements.insert(judgements.end(), found.begin(), found.end());
    const Judgement& last = judgements.back();
    if (last.ok() && !is_last_resort(last, request)) {
      break;
    }
  }
  return judgements;
}

std::vector<Judgement> search(const Plugin& plugin, Session& session) {
  std::vector<Candidate> candidates;
  for (const std::string& dir : split(session.get("NDK_DEFAULT_SEARCH_PATH_LINUX"), ";")) {
    candidates.push_back({dir, dir, "NDK_DEFAULT_SEARCH_PATH_LINUX"});
  }
  return run_search(
      plugin, session, candidates.size(), [&](std::size_t number, const std::string& status) {
        return explain(plugin, candidates[number], status, session.get("NDK_SUPPORTED_VERSIONS"));
      });
}

const Judgement* chosen(const std::vector<Judgement>& judgements, const Request& request,
                        bool newest) {
  const Judgement* best = nullptr;
  for (const Judgement& one : judgements) {
    if (!one.ok()) {
      continue;
    }
    if (best == nullptr) {
      best = &one;
      continue;
    }
    const bool is_resort = is_last_resort(one, request);
    const bool is_best_resort = is_last_resort(*best, request);
    const bool is_better =
        is_resort == is_best_resort ? newest && is_newer(one, *best) : is_best_resort;
    if (is_better) {
      best = &one;
    }
  }
  return best;
}

const Judgement* nearest(const std::vector<Judgement>& judgements, const Request& request) {
  const Judgement* best = nullptr;
  std::tuple<bool, long> best_rank;
  for (const Judgement& one : judgements) {
    const auto release = release_of(one);
    if (!release) {
      continue;
    }
    const bool is_broken = one.status == Status::kNok && one.reason != Reason::kLockedDiffers &&
                           one.reason != Reason::kPreR11;
    const std::tuple rank{is_broken, distance(*release, request)};
    if (best == nullptr || rank < best_rank || (rank == best_rank && is_newer(one, *best))) {
      best = &one;
      best_rank = rank;
    }
  }
  return best;
}

}  // namespace ndk_integrate
