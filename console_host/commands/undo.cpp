#include "console_host/commands/undo.h"

#include <algorithm>
#include <cstddef>
#include <functional>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "console_host/base/errors.h"
#include "console_host/base/interruption.h"
#include "console_host/base/paths.h"
#include "console_host/base/text.h"
#include "console_host/commands/output.h"
#include "console_host/commands/report.h"
#include "console_host/commands/script_teller.h"
#include "console_host/package/compiler.h"
#include "console_host/package/compiler_tree.h"
#include "console_host/package/lock.h"
#include "console_host/package/removal.h"
#include "console_host/package/replacement.h"
#include "console_host/package/staging.h"
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
  std::string kept_as{};                // where a change by somebody else is kept that gave way
  std::optional<std::string> before{};  // what it holds; none where it is not an ordinary file
  std::optional<std::string> after{};   // what it will hold
};

struct Undo {
  enum class Outcome { kUndone, kNothingToUndo, kFailed };

  bool is_dry_run = false;
  bool keeps_ndk = false;  // as the user wants it
  Outcome outcome = Outcome::kNothingToUndo;
  bool changed = false;
  std::set<std::string> forced;    // files whose changes by others give way
  std::optional<std::string> ndk;  // that the compiler was installed for
  std::optional<Removal> removal;  // from that NDK
  std::vector<UndoneFile> files;
  std::vector<std::string> warnings;
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

UndoneFile::Result result_of(const Store& store, const std::string& file, const Found& found,
                             const std::string& version) {
  if (store.is_shared(file, version)) {
    return UndoneFile::Result::kShared;
  }
  switch (store.state(file, found)) {
    case Store::State::kResult:
    case Store::State::kEdited:
    case Store::State::kNotAFile:
      return UndoneFile::Result::kRestored;
    case Store::State::kMissing:
      return store.tree().find(file) ? UndoneFile::Result::kRestored : UndoneFile::Result::kGone;
    default:
      return UndoneFile::Result::kOriginal;
  }
}

// Why the known file `file` is not to be replaced; "" when it may be.
std::string why_not_put_back(const Store& store, const std::string& file, const Found& found) {
  if (found.kind == Found::Kind::kLink || found.kind == Found::Kind::kOther) {
    return file + (found.kind == Found::Kind::kLink ? " is a link" : " is not an ordinary file") +
           ", which someone else put in the place of what ndk-integrate wrote, so it is left as it "
           "is, and so is everything else; remove it, or undo with --force " +
           file + ", which keeps it beside";
  }
  if (found.file) {
    if (std::string why = store.tree().why_not_trusted(file, found.file->status()); !why.empty()) {
      return why;
    }
  }
  return store.why_edited(file, found);
}

// Looks at one file and plans what is to be done with it. Throws std::runtime_error when that must
// not be done.
void plan_file(const Store& store, const std::string& file, const std::string& version,
               Undo& report) {
  const Found found = store.tree().look(file);
  UndoneFile planned{file, result_of(store, file, found, version)};
  if (found.file) {
    planned.before = found.bytes;
  }
  planned.after = planned.before;
  if (planned.result != UndoneFile::Result::kShared) {
    const std::string why = why_not_put_back(store, file, found);
    if (!why.empty() && report.forced.count(file) == 0) {
      throw std::runtime_error(why);
    }
    const std::string original = store.original(file, found).bytes;
    if (planned.result == UndoneFile::Result::kRestored) {
      planned.after = original;
    }
  }
  report.files.push_back(planned);
  report.changed = report.changed || planned.result == UndoneFile::Result::kRestored;
}

void require_known(const std::set<std::string>& forced, const std::vector<std::string>& known) {
  for (const std::string& file : forced) {
    if (std::find(known.begin(), known.end(), file) == known.end()) {
      throw UsageError("--force " + file +
                       ": this is not a file that an installation changed, as undo names them");
    }
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

// What is to be done, with every file looked at. Throws std::runtime_error, with all problems
// named, when a file was edited or its original is damaged, or the removal script cannot be run.
void plan(const Compiler& compiler, const Store& store, Undo& report) {
  const std::vector<std::string> known = store.known_files(compiler.version);
  require_known(report.forced, known);
  std::vector<std::string> problems;
  const auto note_problem = [&](const std::function<void()>& look) {
    try {
      look();
    } catch (const std::exception& problem) {
      problems.emplace_back(problem.what());
    }
  };
  for (const std::string& file : known) {
    note_problem([&] { plan_file(store, file, compiler.version, report); });
  }
  if (!known.empty()) {
    note_problem([&] { plan_ndk(compiler, store, report); });
  }
  if (!problems.empty()) {
    report.files.clear();
    report.removal.reset();
    report.changed = false;
    throw std::runtime_error(join(problems, "; "));
  }
}

// Writes the original of `file`, which is `found`, to the staging directory, ready to take its
// place.
File stage_original(const Store& store, const std::string& file, const Found& found,
                    const Directory& staging) {
  const std::string entry = "0";
  const Store::Original original = store.original(file, found);
  File staged = staging.make_file(entry, file);
  staged.write(original.bytes, file);
  // What gives way may be a stranger's, who gets nothing.
  const bool is_model =
      found.file && store.tree().why_not_trusted(file, found.file->status()).empty();
  store.tree().dress(staged, is_model ? &*found.file : nullptr, original.mode,
                     original.is_secret_of_root);
  staging.rename(entry, staging, StagingDirectory::commit_name(store, file));
  return staged;
}

// Puts the original of `file` back, and tells in the report.
void put_back(const Store& store, UndoneFile file, const Directory& staging, Undo& report) {
  const std::optional<Place> place = store.tree().find(file.path);
  const Found found = place ? look_at(place->directory, place->entry) : Found{};
  const bool is_odd = !why_not_put_back(store, file.path, found).empty();
  if (!place || (is_odd && report.forced.count(file.path) == 0)) {
    throw std::runtime_error(file.path +
                             " was changed by someone else just now; it is left as it is");
  }
  const File staged = stage_original(store, file.path, found, staging);
  const std::optional<std::string> expected =
      found.kind == Found::Kind::kMissing ? std::nullopt : std::optional(found.bytes);
  try {
    file.kept_as = replace({staging, StagingDirectory::commit_name(store, file.path), staged,
                            *place, expected, is_odd});
  } catch (...) {
    report.changed = report.changed || is_in_place(staged, *place);
    throw;
  }
  report.changed = true;
  report.files.push_back(file);
}

// Nothing is forgotten of a file that is not its original again.
void look_once_more(const Store& store, const std::vector<UndoneFile>& files) {
  for (const UndoneFile& file : files) {
    const bool is_to_be_original = file.result == UndoneFile::Result::kRestored ||
                                   file.result == UndoneFile::Result::kOriginal;
    if (!is_to_be_original) {
      continue;
    }
    const Store::State state = store.state(file.path);
    const bool was_template = file.result == UndoneFile::Result::kOriginal;
    if (state != Store::State::kOriginal &&
        !(was_template && state == Store::State::kReinstalled)) {
      throw std::runtime_error(file.path +
                               " was changed by someone else just now, so its original stays kept");
    }
  }
}

// The report tells of the files that were put back, also when it does not come to the last one.
void put_back_all(Store& store, const std::string& version, const std::vector<UndoneFile>& planned,
                  const StagingDirectory& staging, Undo& report) {
  std::set<std::string> gone;
  for (const UndoneFile& file : planned) {
    if (file.result == UndoneFile::Result::kRestored) {
      put_back(store, file, staging.directory(), report);
      continue;
    }
    report.files.push_back(file);
    if (file.result == UndoneFile::Result::kGone) {
      gone.insert(file.path);
    }
  }
  look_once_more(store, report.files);
  store.forget(version, gone);  // whose directory may come back, as a disk does
}

// Takes the compiler out of its NDK and puts the originals back, unless nothing is recorded.
void undo_installation(const Plugin& plugin, Session& session, const Compiler& compiler,
                       const CompilerTree& tree, Undo& report) {
  const HeldSignals held;
  const Lock lock(tree, Store::kDirectory);
  Store store(tree, &lock);
  const StagingDirectory staging(store);
  report.warnings = staging.rescued();
  plan(compiler, store, report);
  if (report.files.empty()) {
    return;
  }
  const std::vector<UndoneFile> planned = std::exchange(report.files, {});
  report.changed = false;  // nothing is put back yet
  if (report.removal) {
    ScriptTeller teller;
    run_removal(compiler, *report.removal, teller);
  }
  plugin.unintegrate_ndk(session.handle());
  put_back_all(store, compiler.version, planned, staging, report);
}

// How many of the files are the originals again.
std::string what_of_files(const Undo& report) {
  const auto number_of = [&](UndoneFile::Result result) {
    return std::count_if(report.files.begin(), report.files.end(),
                         [&](const UndoneFile& file) { return file.result == result; });
  };
  const auto all = static_cast<std::ptrdiff_t>(report.files.size());
  const auto gone = number_of(UndoneFile::Result::kGone);
  const auto shared = number_of(UndoneFile::Result::kShared);
  if (gone + shared == 0) {
    return "the compiler's files are put back";
  }
  std::vector<std::string> left;
  if (gone > 0) {
    left.push_back("directory gone: " + std::to_string(gone));
  }
  if (shared > 0) {
    left.push_back("used by another version: " + std::to_string(shared));
  }
  return std::to_string(all - gone - shared) + " of " + std::to_string(all) +
         " files of the compiler are put back (" + join(left, ", ") + ")";
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
  const std::optional<CompilerTree> tree = find_compiler_tree(compiler.root);
  if (tree && tree->directory().status_of(Store::kDirectory)) {
    if (report.is_dry_run) {
      plan(compiler, Store(*tree), report);
    } else {
      undo_installation(plugin, session, compiler, *tree, report);
    }
  }
  if (report.files.empty()) {
    require_known(report.forced, {});
    report.message = "no installation of " + compiler.version + " is recorded in " +
                     Store::directory_in(compiler.root);
    return;
  }
  if (report.removal && report.removal->has_failed()) {
    throw std::runtime_error(what_of_files(report) + ", but " +
                             why_removal_failed(*report.removal));
  }
  report.outcome = Undo::Outcome::kUndone;
  report.message = what_of_files(report) + what_of_ndk(report);
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
  for (const std::string& warning : report.warnings) {
    complain("warning: " + warning);
  }
  if (report.removal) {
    if (report.removal->is_warning) {
      complain("warning: " + report.removal->why_left);
    }
    tell_removal(*report.removal, report.is_dry_run);
  }
  for (const UndoneFile& file : report.files) {
    say(line_of(file, report.is_dry_run));
    if (!file.kept_as.empty()) {
      say_always("the change by someone else is kept as: " + file.kept_as);
    }
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
    if (!file.kept_as.empty()) {
      files.back()["kept_as"] = file.kept_as;
    }
    if (report.is_dry_run) {
      files.back()["before"] = optional_text(file.before);
      files.back()["after"] = optional_text(file.after);
    }
  }
  say_json({{"schema", 1},
            {"outcome", word_of(report.outcome)},
            {"dry_run", report.is_dry_run},
            {"changed", report.changed},
            {"removal", json_of_removal(report.removal)},
            {"files", files},
            {"warnings", report.warnings},
            {"message", report.message}});
}

}  // namespace

ExitCode undo(const Plugin& plugin, const Installation& installation, const UndoOptions& options) {
  if (options.json) {
    be_quiet();
  }
  Session session(installation);
  Undo report;
  report.is_dry_run = options.dry_run;
  for (const std::string& file : options.force) {
    report.forced.insert(normal_path(absolute_path(working_directory(), file)));
  }
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
