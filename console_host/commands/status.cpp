#include "console_host/commands/status.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "console_host/base/errors.h"
#include "console_host/base/files.h"
#include "console_host/commands/output.h"
#include "console_host/package/compiler.h"
#include "console_host/package/compiler_tree.h"
#include "console_host/package/store.h"

namespace ndk_integrate {

namespace {

struct FileState {
  std::string path;
  Store::State state;
};

struct StatusReport {
  enum class Outcome {
    kInstalled,
    kUnfinished,  // an installation was cut short, or its script failed
    kIncomplete,  // it came to its end, but files of it are missing or not filled in any more
    kNotInstalled,
    kFailed,
  };

  Outcome outcome = Outcome::kNotInstalled;
  std::optional<InstallationRecord> record;  // none where an older program kept none
  std::vector<FileState> files;
  std::string message;
};

const char* word_of(StatusReport::Outcome outcome) {
  switch (outcome) {
    case StatusReport::Outcome::kInstalled:
      return "installed";
    case StatusReport::Outcome::kUnfinished:
      return "unfinished";
    case StatusReport::Outcome::kIncomplete:
      return "incomplete";
    case StatusReport::Outcome::kNotInstalled:
      return "not-installed";
    default:
      return "failed";
  }
}

const char* word_of(Store::State state) {
  switch (state) {
    case Store::State::kOriginal:
      return "original";
    case Store::State::kResult:
      return "result";
    case Store::State::kReinstalled:
      return "reinstalled";
    case Store::State::kMissing:
      return "missing";
    case Store::State::kNotAFile:
      return "not-a-file";
    case Store::State::kEdited:
      return "edited";
    default:
      return "unknown";
  }
}

// What a state means to a person.
const char* text_of(Store::State state) {
  switch (state) {
    case Store::State::kOriginal:
      return "the original";
    case Store::State::kResult:
      return "filled in";
    case Store::State::kReinstalled:
      return "reinstalled since, not filled in";
    case Store::State::kMissing:
      return "missing";
    case Store::State::kNotAFile:
      return "not an ordinary file any more";
    case Store::State::kEdited:
      return "edited since by someone else";
    default:
      return "unknown";
  }
}

bool is_filled_in(const FileState& file) {
  return file.state == Store::State::kResult || file.state == Store::State::kEdited;
}

// Says how an installation is whose files were found as `status` has them.
void judge_installation(const std::string& version, StatusReport& status) {
  const auto all = static_cast<std::ptrdiff_t>(status.files.size());
  const auto filled_in = std::count_if(status.files.begin(), status.files.end(), is_filled_in);
  if (status.record && !status.record->is_finished) {
    status.outcome = StatusReport::Outcome::kUnfinished;
    status.message = "the installation of " + version +
                     " did not come to its end; install or undo puts that right";
  } else if (!status.record && filled_in == 0) {
    status.message = version +
                     " is not installed, but originals of its files are kept; undo puts them back "
                     "as soon as their directories are there";
  } else if (filled_in < all) {
    status.outcome = StatusReport::Outcome::kIncomplete;
    status.message = version +
                     " was installed, but it is not whole any more (files missing or not filled "
                     "in: " +
                     std::to_string(all - filled_in) + " of " + std::to_string(all) +
                     "); install it again, where the compiler package is whole, or undo it";
  } else {
    status.outcome = StatusReport::Outcome::kInstalled;
    status.message = version + " is installed";
  }
}

void look(const Plugin& plugin, Session& session, StatusReport& status) {
  const Compiler compiler = selected_compiler(plugin, session);
  const std::string kept = Store::directory_in(compiler.root);
  if (const std::optional<CompilerTree> tree = find_compiler_tree(compiler.root)) {
    const Store store(*tree);
    status.record = store.installation(compiler.version);
    for (const std::string& file : store.known_files(compiler.version)) {
      status.files.push_back({file, store.state(file)});
    }
  }
  if (status.files.empty()) {
    status.message = "no installation of " + compiler.version + " is recorded in " + kept;
    return;
  }
  judge_installation(compiler.version, status);
}

void tell_people(const StatusReport& status) {
  if (status.outcome == StatusReport::Outcome::kFailed) {
    complain("not done: " + status.message);
    return;
  }
  say_always(status.message);
  if (status.record) {
    say("component: " + status.record->component);
    say("NDK: " + status.record->ndk.value_or("none, integration is disabled"));
    if (status.record->ndk) {
      say("release: " + status.record->release.value_or("unknown"));
    }
    say("since: " + status.record->time);
  }
  for (const FileState& file : status.files) {
    say(file.path + ": " + text_of(file.state));
  }
}

void tell_programs(const StatusReport& status) {
  Json files = Json::array();
  for (const FileState& file : status.files) {
    files.push_back({{"path", file.path}, {"state", word_of(file.state)}});
  }
  const auto recorded = [&](const auto& member) {
    return status.record ? Json(member(*status.record)) : Json(nullptr);
  };
  say_json({{"schema", 1},
            {"outcome", word_of(status.outcome)},
            {"version", recorded([](const auto& record) { return Json(record.version); })},
            {"component", recorded([](const auto& record) { return Json(record.component); })},
            {"ndk", recorded([](const auto& record) { return optional_text(record.ndk); })},
            {"release", recorded([](const auto& record) { return optional_text(record.release); })},
            {"time", recorded([](const auto& record) { return Json(record.time); })},
            {"files", files},
            {"message", status.message}});
}

}  // namespace

ExitCode status(const Plugin& plugin, const Installation& installation, bool json) {
  Session session(installation);
  StatusReport status;
  try {
    look(plugin, session, status);
  } catch (const UsageError&) {
    throw;
  } catch (...) {
    status.outcome = StatusReport::Outcome::kFailed;
    status.message = describe_current_exception();
  }
  if (json) {
    tell_programs(status);
  } else {
    tell_people(status);
  }
  return status.outcome == StatusReport::Outcome::kFailed ? kNotDone : kDone;
}

}  // namespace ndk_integrate
