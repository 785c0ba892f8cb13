// Candidates and the plug-in's verdicts on them.
#ifndef CONSOLE_HOST_NDK_SEARCH_H
#define CONSOLE_HOST_NDK_SEARCH_H

#include <optional>
#include <string>
#include <vector>

#include "console_host/ndk/judgement.h"
#include "console_host/ndk/plugin.h"
#include "console_host/services/session.h"

namespace ndk_integrate {

// The directory `path`, taken from the working directory when it is relative, which comes from
// `source`.
Candidate candidate_of(const std::string& path, const std::string& source = "");

// Lets the plug-in judge one candidate. `supported` is a list of releases for the plug-in; without
// it any release that can be read is supported.
Judgement judge(const Plugin& plugin, const Candidate& candidate,
                const std::optional<std::string>& supported);

// Lets the plug-in judge one candidate, and then looks at what else is wanted.
Judgement judge(const Plugin& plugin, const Candidate& candidate, const Request& request);

// The same for every candidate.
std::vector<Judgement> judge_all(const Plugin& plugin, const std::vector<Candidate>& candidates,
                                 const Request& request);

// Lets the plug-in search, until a candidate is good and not a last resort. The judgements are
// those of the candidates up to that one, in their order.
std::vector<Judgement> judge_until_found(const Plugin& plugin,
                                         const std::vector<Candidate>& candidates,
                                         const Request& request);

// Lets the plug-in search in `session`, whose variables name the directories and the supported
// releases. The judgements are those of the directories that it tried.
std::vector<Judgement> search(const Plugin& plugin, Session& session);

// Which of `judgements` is to be taken: the first good one or, with `newest`, that of the newest
// revision; a last resort only when nothing else is good. Null when none is good.
const Judgement* chosen(const std::vector<Judgement>& judgements, const Request& request,
                        bool newest);

// Which of `judgements`, none of them good, is nearest to what is asked for; the newer of two that
// are as near. Null when no release can be told.
const Judgement* nearest(const std::vector<Judgement>& judgements, const Request& request);

}  // namespace ndk_integrate

#endif
