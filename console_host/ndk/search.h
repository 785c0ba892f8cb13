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

// The directory `path`, taken from the working directory when it is relative.
Candidate candidate_of(const std::string& path);

// In these, `supported` is a list of releases for the plug-in; without it any release that can be
// read is supported.

// Lets the plug-in judge one candidate.
Judgement judge(const Plugin& plugin, const Candidate& candidate,
                const std::optional<std::string>& supported);

// Lets the plug-in judge every candidate by itself.
std::vector<Judgement> judge_all(const Plugin& plugin, const std::vector<Candidate>& candidates,
                                 const std::optional<std::string>& supported);

// Lets the plug-in search, which stops at the first candidate that is good. The judgements are those
// of the candidates up to that one, in their order.
std::vector<Judgement> judge_until_found(const Plugin& plugin,
                                         const std::vector<Candidate>& candidates,
                                         const std::optional<std::string>& supported);

// Lets the plug-in search in `session`, whose variables name the directories and the supported
// releases. The judgements are those of the directories that it tried.
std::vector<Judgement> search(const Plugin& plugin, Session& session);

}  // namespace ndk_integrate

#endif
