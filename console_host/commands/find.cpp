#include "console_host/commands/find.h"

#include <algorithm>
#include <filesystem>
#include <utility>

#include "console_host/base/errors.h"
#include "console_host/base/escaping.h"
#include "console_host/base/files.h"
#include "console_host/base/paths.h"
#include "console_host/base/text.h"
#include "console_host/commands/line_format.h"
#include "console_host/commands/output.h"
#include "console_host/ndk/project.h"
#include "console_host/ndk/search.h"
#include "console_host/ndk/usual_places.h"

namespace ndk_integrate {

namespace {

// What `find` did, for people and programs.
struct Findings {
  std::vector<Judgement> judgements;
  const Judgement* found = nullptr;
  const Judgement* nearest = nullptr;
  std::vector<std::string> warnings;
};

// --- What is asked for ---

std::optional<AskedReleases> asked_releases(const std::optional<std::string>& supported) {
  return supported ? std::optional(AskedReleases("--supported", *supported)) : std::nullopt;
}

// What the project says; nothing where it is not to be asked.
Project project_of(const FindOptions& options) {
  if (options.no_project || !options.search.empty()) {
    return {};
  }
  if (!options.project) {
    const std::string dir = working_directory();
    return dir.empty() ? Project() : read_project(dir);
  }
  std::error_code failure;
  const std::string dir = std::filesystem::canonical(*options.project, failure).string();
  if (failure || !is_directory(dir)) {
    throw UsageError("--project: no such directory: " + *options.project);
  }
  return read_project(dir);
}

// What the project pins: the revision that it names, or that of the NDK that it names.
void ask_for_pin(const Project& project, Request& request, std::vector<std::string>& warnings) {
  for (const auto& pin : {project.ndk_path, project.ndk_dir}) {
    const std::string revision = pin ? read_revision(pin->value) : "";
    if (!project.ndk_version && !request.releases && !revision.empty()) {
      request.releases = AskedReleases::exactly(revision);
      request.asked_by = pin->source;
    }
  }
  if (!project.ndk_version) {
    return;
  }
  try {
    request.releases = AskedReleases::of_project(project.ndk_version->value);
    request.asked_by = project.ndk_version->source;
  } catch (const UsageError&) {
    warnings.push_back(project.ndk_version->source + " is passed over: '" +
                       project.ndk_version->value + "' is not a revision as 21.4.7075529");
  }
}

Request request_of(const FindOptions& options, const Project& project,
                   std::vector<std::string>& warnings) {
  Request request;
  request.read_only = options.read_only;
  request.prerelease = options.prerelease;
  request.releases = asked_releases(options.supported);
  if (options.locked) {
    request.lock = read_lock(*options.locked);
  } else if (!options.supported) {
    ask_for_pin(project, request, warnings);
  }
  return request;
}

// --- Where to look ---

Places places_of(const FindOptions& options, const Project& project) {
  if (options.search.empty()) {
    return usual_places(project);
  }
  Places places;
  for (const std::string& list : options.search) {
    for (const std::string& dir : split(list, ";")) {
      places.candidates.push_back(candidate_of(dir, "--search"));
    }
  }
  return places;
}

// --- What was found ---

// Of the candidates behind those judged, judges those that a variable or a project names, and keeps
// those with something wrong: what somebody set is never passed over in silence. `candidates` are
// left with those that have a judgement.
void judge_named(const Plugin& plugin, const Request& request, std::vector<Candidate>& candidates,
                 std::vector<Judgement>& judgements) {
  std::vector<Candidate> judged(
      candidates.begin(), candidates.begin() + static_cast<std::ptrdiff_t>(judgements.size()));
  for (std::size_t i = judgements.size(); i < candidates.size(); ++i) {
    if (!candidates[i].is_named) {
      continue;
    }
    const Judgement judgement = judge(plugin, candidates[i], request);
    if (judgement.status == Status::kNok || !candidates[i].notes.empty()) {
      judgements.push_back(judgement);
      judged.push_back(candidates[i]);
    }
  }
  candidates = std::move(judged);
}

// Says of each named directory that is not good what was probably meant.
void add_hints(const std::vector<Candidate>& candidates, std::vector<Judgement>& judgements) {
  for (std::size_t i = 0; i < judgements.size(); ++i) {
    judgements[i].message = with_hint(candidates[i], judgements[i], judgements);
  }
}

Findings look(const Plugin& plugin, const FindOptions& options) {
  Findings findings;
  const Project project = project_of(options);
  findings.warnings = project.notes;
  const Request request = request_of(options, project, findings.warnings);
  Places places = places_of(options, project);
  findings.warnings.insert(findings.warnings.end(), places.warnings.begin(), places.warnings.end());
  findings.judgements = options.all || options.newest
                            ? judge_all(plugin, places.candidates, request)
                            : judge_until_found(plugin, places.candidates, request);
  judge_named(plugin, request, places.candidates, findings.judgements);
  add_hints(places.candidates, findings.judgements);
  findings.found = chosen(findings.judgements, request, options.newest);
  if (findings.found == nullptr) {
    findings.nearest = nearest(findings.judgements, request);
  }
  return findings;
}

void write_lock_of(const Judgement& found, const std::string& file) {
  write_lock(candidate_of(file).dir, lock_of(normal_path(candidate_of(found.path).dir),
                                             found.release, found.revision.value_or("")));
}

// --- Telling it ---

std::string release_and_revision(const Judgement& judgement) {
  std::string revision = judgement.revision.value_or("");
  if (!judgement.release) {
    return revision;
  }
  return *judgement.release + (revision.empty() ? "" : " (" + revision + ")");
}

// The path and the message, and behind them what these do not say: the release, and where the
// directory comes from.
std::string told(const Judgement& judgement, bool with_source) {
  std::vector<std::string> more;
  const std::string release = release_and_revision(judgement);
  if (judgement.message.find(release) == std::string::npos) {
    more.push_back(release);
  }
  if (with_source) {
    more.push_back("from " + judgement.source);
  }
  return line_of(judgement) + (more.empty() ? "" : " [" + join(more, ", ") + "]");
}

std::string told_with_notes(const Judgement& judgement, bool with_source) {
  std::string text = one_line(told(judgement, with_source)) + "\n";
  for (const Note& note : judgement.notes) {
    text += one_line("  note: " + note.message) + "\n";
  }
  return text;
}

void tell_json(const Findings& findings) {
  const auto path = [](const Judgement* judgement) {
    return judgement == nullptr ? Json(nullptr) : Json(judgement->path);
  };
  Json candidates = Json::array();
  for (const Judgement& judgement : findings.judgements) {
    candidates.push_back(to_json(judgement));
  }
  say_json({{"schema", 1},
            {"ndk", path(findings.found)},
            {"candidates", std::move(candidates)},
            {"warnings", findings.warnings},
            {"nearest", path(findings.nearest)}});
}

void tell_lines(const Findings& findings, const FindOptions& options) {
  std::string text;
  for (const Judgement& judgement : findings.judgements) {
    if (options.all || &judgement == findings.found) {
      text += formatted_line(*options.format, judgement);
    }
  }
  print(text);
}

void complain_of_none(const Findings& findings) {
  const std::size_t count = findings.judgements.size();
  complain("no NDK found: " +
           (count == 0 ? "no directory in any of the usual places; --search names others"
                       : std::to_string(count) + (count == 1 ? " directory" : " directories") +
                             " looked at, none is good"));
  if (findings.nearest != nullptr) {
    complain("nearest to what was asked for: " + findings.nearest->path + ", " +
             release_and_revision(*findings.nearest));
  }
}

void tell_people(const Findings& findings) {
  for (const std::string& warning : findings.warnings) {
    complain("warning: " + warning);
  }
  if (!is_quiet()) {
    std::string text;  // printed at once: there may be thousands
    for (const Judgement& judgement : findings.judgements) {
      text += told_with_notes(judgement, true);
    }
    print(text);
  }
  if (findings.found != nullptr) {
    say("NDK found: " + findings.found->path);
    if (is_quiet()) {
      print(findings.found->path + "\n");  // for programs, so as it stands
    }
    return;
  }
  if (is_quiet()) {
    for (const Judgement& judgement : findings.judgements) {
      complain(told(judgement, true));
    }
  }
  complain_of_none(findings);
}

void tell(const Findings& findings, const FindOptions& options) {
  if (options.json) {
    tell_json(findings);
  } else if (!options.format) {
    tell_people(findings);
  } else {
    tell_lines(findings, options);
    if (findings.found == nullptr) {
      complain_of_none(findings);
    }
  }
}

}  // namespace

Json to_json(const Judgement& judgement) {
  Json notes = Json::array();
  for (const Note& note : judgement.notes) {
    notes.push_back({{"reason", word_of(note.reason)}, {"message", note.message}});
  }
  return {{"schema", 1},
          {"path", judgement.path},
          {"status", word_of(judgement.status)},
          {"reason", word_of(judgement.reason)},
          {"release", optional_text(judgement.release)},
          {"revision", optional_text(judgement.revision)},
          {"message", judgement.message},
          {"source", judgement.source},
          {"prerelease", judgement.prerelease},
          {"notes", notes}};
}

std::string line_of(const Judgement& judgement) {
  return judgement.path + ": " + judgement.message;
}

void require_understood(const FindOptions& options) {
  const auto names_none = [](const std::string& list) {
    return list.find_first_not_of(';') == std::string::npos;
  };
  if (!options.search.empty() &&
      std::all_of(options.search.begin(), options.search.end(), names_none)) {
    throw UsageError("--search names no directory");
  }
  asked_releases(options.supported);
  if (options.format) {
    formatted_line(*options.format, Judgement());
  }
}

ExitCode find(const Plugin& plugin, const FindOptions& options) {
  const Findings findings = look(plugin, options);
  if (findings.found != nullptr && options.lock) {
    write_lock_of(*findings.found, *options.lock);
  }
  tell(findings, options);
  return findings.found == nullptr ? kNotDone : kDone;
}

void require_understood(const CheckOptions& options) {
  if (options.dir.empty()) {
    throw UsageError("check: the directory's name is empty");
  }
  asked_releases(options.supported);
}

ExitCode check(const Plugin& plugin, const CheckOptions& options) {
  Request request;
  request.releases = asked_releases(options.supported);
  request.read_only = options.read_only;
  const Judgement judgement = judge(plugin, candidate_of(options.dir, "the command line"), request);
  if (options.json) {
    say_json(to_json(judgement));
  } else if (!is_quiet()) {
    print(told_with_notes(judgement, false));
  } else if (!judgement.ok()) {
    say_always(told(judgement, false));
  }
  return judgement.ok() ? kDone : kNotDone;
}

}  // namespace ndk_integrate
