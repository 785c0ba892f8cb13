#include "console_host/commands/report.h"

#include "console_host/base/diff.h"
#include "console_host/commands/find.h"
#include "console_host/commands/script_teller.h"

namespace ndk_integrate {

namespace {

const char* word_of(Report::Outcome outcome) {
  switch (outcome) {
    case Report::Outcome::kIntegrated:
      return "integrated";
    case Report::Outcome::kDisabled:
      return "disabled";
    case Report::Outcome::kNotSelected:
      return "not-selected";
    case Report::Outcome::kNoNdk:
      return "no-ndk";
    default:
      return "failed";
  }
}

const char* word_of(TemplateFile::Result result) {
  switch (result) {
    case TemplateFile::Result::kPatched:
      return "patched";
    case TemplateFile::Result::kMissing:
      return "missing";
    default:
      return "failed";
  }
}

// What a dry run shows of a file: nothing of one that was refused.
std::string diff_of(const TemplateFile& file) {
  return file.is_staged ? diff(file.path, file.before, file.after) : "";
}

void tell_files(const Report& report) {
  for (const TemplateFile& file : report.files) {
    if (file.result == TemplateFile::Result::kPatched) {
      say((report.is_dry_run ? "would fill in: " : "filled in: ") + file.path + " (" +
          std::to_string(file.placeholders) +
          (file.placeholders == 1 ? " placeholder)" : " placeholders)"));
    } else {
      say(word_of(file.result) + (": " + file.path));
    }
  }
}

void tell_script(const Report& report) {
  if (report.is_dry_run && !report.command.empty()) {
    say("would run: " + report.command);
  }
  if (report.script) {
    tell_end_of_script(*report.script);
  }
}

void tell_warnings(const Report& report) {
  for (const std::string& warning : report.warnings) {
    complain("warning: " + warning);
  }
}

// Each candidate's reason, where that is why the installation ended.
void tell_candidates(const Report& report) {
  if (report.outcome == Report::Outcome::kNoNdk && report.candidates.size() > 1) {
    for (const Judgement& judgement : report.candidates) {
      complain(line_of(judgement));
    }
  }
}

void tell_problems(const Report& report) {
  if (report.problems.size() > 1) {
    for (const std::string& problem : report.problems) {
      complain("problem: " + problem);
    }
  }
}

void tell_end(const Report& report) {
  if (report.is_done()) {
    say_always(
        (report.is_dry_run ? "dry run, nothing is changed; after an installation: " : "done: ") +
        report.message);
  } else if (report.is_nothing_to_do && report.is_optional) {
    say_always("nothing to do here, which --optional allows: " + report.message);
  } else if (report.is_nothing_to_do) {
    complain("nothing to do here: " + report.message);
  } else if (report.problems.size() > 1) {
    complain("not done: " + std::to_string(report.problems.size()) +
             " problems, and nothing was changed");
  } else {
    complain("not done: " + report.message);
  }
}

void tell_people(const Report& report) {
  tell_warnings(report);
  if (report.removal) {
    tell_removal(*report.removal, report.is_dry_run);
  }
  tell_files(report);
  tell_script(report);
  if (report.verification) {
    tell(*report.verification);
  }
  if (report.is_dry_run && report.is_done()) {
    for (const TemplateFile& file : report.files) {
      print(diff_of(file));
    }
  }
  tell_candidates(report);
  tell_problems(report);
  tell_end(report);
}

Json json_of_files(const Report& report) {
  Json files = Json::array();
  for (const TemplateFile& file : report.files) {
    Json object{
        {"path", file.path}, {"placeholders", file.placeholders}, {"result", word_of(file.result)}};
    if (report.is_dry_run) {
      object["diff"] = diff_of(file);
      object["before"] = file.is_staged ? Json(file.before) : Json(nullptr);
      object["after"] = file.is_staged ? Json(file.after) : Json(nullptr);
    }
    files.push_back(object);
  }
  return files;
}

// The run of a script, or the one that a dry run would begin with `command`; null when there is
// none.
Json json_of_script(const std::optional<ScriptRun>& script, const std::string& command) {
  if (script) {
    return {{"command", script->command},
            {"exit_status", script->exit_status},
            {"output", script->output}};
  }
  if (!command.empty()) {
    return {{"command", command}, {"exit_status", nullptr}, {"output", ""}};
  }
  return nullptr;
}

void tell_programs(const Report& report) {
  Json candidates = Json::array();
  if (report.outcome == Report::Outcome::kNoNdk) {
    for (const Judgement& judgement : report.candidates) {
      candidates.push_back(to_json(judgement));
    }
  }
  say_json({{"schema", 1},
            {"outcome", word_of(report.outcome)},
            {"dry_run", report.is_dry_run},
            {"changed", report.changed},
            {"ndk", optional_text(report.ndk)},
            {"release", optional_text(report.release)},
            {"component", optional_text(report.component)},
            {"candidates", candidates},
            {"files", json_of_files(report)},
            {"script", json_of_script(report.script, report.is_dry_run ? report.command : "")},
            {"removal", json_of_removal(report.removal)},
            {"verify", report.verification ? to_json(*report.verification) : Json(nullptr)},
            {"problems", report.problems},
            {"warnings", report.warnings},
            {"message", report.message}});
}

}  // namespace

void tell_removal(const Removal& removal, bool is_dry_run) {
  if (removal.script) {
    tell_end_of_script(*removal.script);
  } else if (is_dry_run && !removal.command.empty()) {
    say("would run: " + removal.command);
  }
}

Json json_of_removal(const std::optional<Removal>& removal) {
  if (!removal) {
    return nullptr;
  }
  const std::string& why_left = removal->why_left;
  return {{"ndk", removal->ndk},
          {"script", json_of_script(removal->script, removal->command)},
          {"left", why_left.empty() ? Json(nullptr) : Json(why_left)}};
}

ExitCode tell(const Report& report) {
  if (report.is_json) {
    tell_programs(report);
  } else {
    tell_people(report);
  }
  if (report.is_done()) {
    return kDone;
  }
  if (report.is_nothing_to_do) {
    return report.is_optional ? kDone : kNothingToDo;
  }
  return kNotDone;
}

}  // namespace ndk_integrate
