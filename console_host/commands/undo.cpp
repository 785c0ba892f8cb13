#include "console_host/commands/undo.h"

#include <functional>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "console_host/base/durable_file.h"
#include "console_host/base/errors.h"
#include "console_host/base/files.h"
#include "console_host/base/paths.h"
#include "console_host/base/text.h"
#include "console_host/commands/output.h"
#include "console_host/commands/report.h"
#include "console_host/package/compiler.h"
#include "console_host/package/lock.h"
#include "console_host/package/removal.h"
#include "console_host/package/store.h"

namespace ndk_integrate {

namespace {

struct UndoneFile {
  enum class Result {
    kRestored,
    kOriginal,  // it was already
    kGone,      // with its directory
    kShared,    // it stays as it is for another version of the compiler
  };

  std::string path;
  Result result;
};

struct Undo {
  enum class Outcome { kUndone, kNothingToUndo, kFailed };

  bool is_dry_run = false;
  bool keeps_ndk = false;  // as the user wants it
  Outcome outcome = Outcome::kNothingToUndo;
  bool changed = false;
  std::optional<std::string> ndk;  // that the compiler was installed for
  std::optional<Removal> removal;  // from that NDK
  std::vector<UndoneFile> files;
  std::string message;
};

const char* word_of(UndoneFile::Result result) {
  switch (result) {
    case UndoneFile::Result::kRestored:
      return "restored";
    case UndoneFile::Result::kOriginal:
      return "original";
    case UndoneFile::Result::kGone:
      return "gone";
    default:
      return "shared";
  }
}

const char* word_of(Undo::Outcome outcome) {
  switch (outcome) {
    case Undo::Outcome::kUndone:
      return "undone";
    case Undo::Outcome::kNothingToUndo:
      return "nothing-to-undo";
    default:
      return "failed";
  }
}

UndoneFile::Result result_of(const Store& store, const std::string& file,
                             const std::string& version) {
  if (store.is_shared(file, version)) {
    return UndoneFile::Result::kShared;
  }
  switch (store.state(file)) {
    case Store::State::kResult:
      return UndoneFile::Result::kRestored;
    case Store::State::kMissing:
      return is_directory(directory_of(file)) ? UndoneFile::Result::kRestored
                                              : UndoneFile::Result::kGone;
    default:
      return UndoneFile::Result::kOriginal;
  }
}

// What is to be done about the NDK, if something is.
void plan_ndk(const Compiler& compiler, const Store& store, Undo& report) {
  const auto record = store.installation(compiler.version);
  report.ndk = record ? record->ndk : std::nullopt;
  if (report.ndk && !report.keeps_ndk) {
    report.removal = plan_removal(compiler, *report.ndk);
  }
}

// What is to be done, with every file looked at. Throws std::runtime_error, with all problems named,
// when a file was edited or its original is damaged, or the removal script cannot be run.
void plan(const Compiler& compiler, const Store& store, Undo& report) {
  std::vector<std::string> problems;
  const auto note_problem = [&](const std::function<void()>& look) {
    try {
      look();
    } catch (const std::exception& problem) {
      problems.emplace_back(problem.what());
    }
  };
  for (const std::string& file : store.known_files(compiler.version)) {
    const UndoneFile::Result result = result_of(store, file, compiler.version);
    report.files.push_back({file, result});
    report.changed = report.changed || result == UndoneFile::Result::kRestored;
    if (result == UndoneFile::Result::kShared) {
      continue;
    }
    note_problem([&] {
      store.refuse_edited(file);
      store.original(file);
    });
  }
  if (!report.files.empty()) {
    note_problem([&] { plan_ndk(compiler, store, report); });
  }
  if (!problems.empty()) {
    report.files.clear();
    report.removal.reset();
    report.changed = false;
    throw std::runtime_error(join(problems, "; "));
  }
}

void put_back(const Store& store, const std::string& file, const std::string& staged) {
  const Store::Original original = store.original(file);
  write_file(staged, original.bytes, original.mode, file);
  take_over_owner(staged, file, original.mode);
  flush_to_disk(staged);
  replace_file(staged, file);
}

// The report tells of the files that were put back, also when it does not come to the last one.
void put_back_all(Store& store, const std::string& version, const StagingDirectory& staging,
                  Undo& report) {
  std::set<std::string> gone;
  const std::vector<UndoneFile> planned = std::exchange(report.files, {});
  report.changed = false;
  for (const UndoneFile& file : planned) {
    if (file.result == UndoneFile::Result::kRestored) {
      put_back(store, file.path, staging.name() + "/0");
      report.changed = true;
    } else if (file.result == UndoneFile::Result::kGone) {
      gone.insert(file.path);
    }
    report.files.push_back(file);
  }
  store.forget(version, gone);  // whose directory may come back, as a disk does
}

// Takes the compiler out of its NDK and puts the originals back, unless nothing is recorded.
void undo_installation(const Plugin& plugin, Session& session, const Compiler& compiler,
                       Undo& report) {
  const Lock lock(Store::directory_in(compiler.root));
  Store store(compiler.root);
  const StagingDirectory staging(store);
  plan(compiler, store, report);
  if (report.files.empty()) {
    return;
  }
  if (report.removal) {
    run_removal(compiler, *report.removal);
  }
  plugin.unintegrate_ndk(session.handle());
  put_back_all(store, compiler.version, staging, report);
}

// What becomes of the NDK, as the end of a sentence.
std::string what_of_ndk(const Undo& report) {
  if (!report.ndk) {
    return "";
  }
  if (!report.removal) {
    return "; " + *report.ndk + " is left alone, as --keep-ndk asks";
  }
  if (!report.removal->command.empty()) {
    const std::vector<std::string>& left = report.removal->left;
    return left.empty() ? ", and its definitions are taken out of " + *report.ndk
                        : "; the removal script left in the NDK: " + join(left, ", ");
  }
  return report.removal->is_warning ? "" : "; " + report.removal->why_left;
}

void run(const Plugin& plugin, Session& session, Undo& report) {
  const Compiler compiler = selected_compiler(plugin, session);
  const std::string kept = Store::directory_in(compiler.root);
  if (is_taken(kept)) {
    if (report.is_dry_run) {
      plan(compiler, Store(compiler.root), report);
    } else {
      undo_installation(plugin, session, compiler, report);
    }
  }
  if (report.files.empty()) {
    report.message = "no installation of " + compiler.version + " is recorded in " + kept;
    return;
  }
  if (report.removal && report.removal->has_failed()) {
    throw std::runtime_error("the compiler's files are put back, but " +
                             why_removal_failed(*report.removal));
  }
  report.outcome = Undo::Outcome::kUndone;
  report.message = "the compiler's files are put back" + what_of_ndk(report);
}

std::string line_of(const UndoneFile& file, bool is_dry_run) {
  switch (file.result) {
    case UndoneFile::Result::kRestored:
      return (is_dry_run ? "would put back: " : "put back: ") + file.path;
    case UndoneFile::Result::kOriginal:
      return "was the original already: " + file.path;
    case UndoneFile::Result::kGone:
      return "not put back, its directory is gone (its original stays kept): " + file.path;
    default:
      return "stays, another version of the compiler uses it: " + file.path;
  }
}

void tell_people(const Undo& report) {
  if (report.removal) {
    if (report.removal->is_warning) {
      complain("warning: " + report.removal->why_left);
    }
    tell_removal(*report.removal, report.is_dry_run);
  }
  for (const UndoneFile& file : report.files) {
    say(line_of(file, report.is_dry_run));
  }
  switch (report.outcome) {
    case Undo::Outcome::kUndone:
      say_always((report.is_dry_run ? "dry run, nothing is changed; after an undo: " : "done: ") +
                 report.message);
      break;
    case Undo::Outcome::kNothingToUndo:
      say_always("nothing to undo: " + report.message);
      break;
    default:
      complain("not done: " + report.message);
  }
}

void tell_programs(const Undo& report) {
  Json files = Json::array();
  for (const UndoneFile& file : report.files) {
    files.push_back({{"path", file.path}, {"result", word_of(file.result)}});
  }
  say_json({{"schema", 1},
            {"outcome", word_of(report.outcome)},
            {"dry_run", report.is_dry_run},
            {"changed", report.changed},
            {"removal", json_of_removal(report.removal)},
            {"files", files},
            {"message", report.message}});
}

}  // namespace

ExitCode undo(const Plugin& plugin, const Installation& installation, const UndoOptions& options) {
  Session session(installation);
  Undo report;
  report.is_dry_run = options.dry_run;
  report.keeps_ndk = options.keep_ndk;
  try {
    run(plugin, session, report);
  } catch (const UsageError&) {
    throw;
  } catch (...) {
    report.outcome = Undo::Outcome::kFailed;
    report.message = describe_current_exception();
  }
  if (options.json) {
    tell_programs(report);
  } else {
    tell_people(report);
  }
  return report.outcome == Undo::Outcome::kFailed ? kNotDone : kDone;
}

}  // namespace ndk_integrate
