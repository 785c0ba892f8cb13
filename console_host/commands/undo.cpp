#include "console_host/commands/undo.h"

#include <filesystem>
#include <set>
#include <stdexcept>

#include "console_host/base/durable_file.h"
#include "console_host/base/errors.h"
#include "console_host/base/paths.h"
#include "console_host/commands/output.h"
#include "console_host/package/lock.h"
#include "console_host/package/preflight.h"
#include "console_host/package/store.h"
#include "console_host/services/session.h"
#include "host/host.h"

namespace ndk_integrate {

namespace {

struct UndoneFile {
  std::string path;
  std::string result;  // "restored", "original" (it was already) or "gone" (with its directory)
};

struct Undo {
  std::string outcome = "nothing-to-undo";
  bool changed = false;
  std::vector<UndoneFile> files;
  std::string message;
};

void put_back(const Store& store, const std::string& file, const std::string& staged) {
  const Store::Original original = store.original(file);
  write_file(staged, original.bytes, original.mode, file);
  take_over_owner(staged, file, original.mode);
  flush_to_disk(staged);
  replace_file(staged, file);
}

UndoneFile undo_file(const Store& store, const std::string& file, const std::string& staged) {
  switch (store.state(file)) {
    case Store::State::kResult:
      put_back(store, file, staged);
      return {file, "restored"};
    case Store::State::kMissing:
      if (!std::filesystem::exists(directory_of(file))) {
        return {file, "gone"};
      }
      put_back(store, file, staged);
      return {file, "restored"};
    default:
      return {file, "original"};
  }
}

// Throws before anything is put back when something could not be.
void refuse_damaged_originals(const Store& store) {
  for (const std::string& file : store.known_files()) {
    store.original(file);
  }
}

void undo_files(Store& store, const StagingDirectory& staging, Undo& report) {
  std::set<std::string> gone;
  for (const std::string& file : store.known_files()) {
    const UndoneFile undone = undo_file(store, file, staging.name() + "/0");
    report.changed = report.changed || undone.result == "restored";
    report.files.push_back(undone);
    if (undone.result == "gone") {
      gone.insert(file);
    }
  }
  store.forget_all_but(gone);  // whose directory may come back, as a disk does
  report.outcome = "undone";
  report.message =
      "what the integration script did inside the NDK is the compiler package's to undo";
}

void run(const Plugin& plugin, Session& session, Undo& report) {
  plugin.check_if_ndk_integration_files_are_to_be_installed(session.handle());
  if (session.compiler() == nullptr) {
    throw std::runtime_error(
        "no selected component asks for the NDK integration, so which compiler is meant cannot be told");
  }
  const std::string root = compiler_root(session);
  if (file_exists(Store::directory_in(root), true) == 0) {
    report.message = "no installation is recorded in " + root;
    return;
  }
  const Lock lock(Store::directory_in(root));
  Store store(root);
  const StagingDirectory staging(store);
  if (store.known_files().empty()) {
    report.message = "no installation is recorded in " + root;
    return;
  }
  refuse_edited_files(store);
  refuse_damaged_originals(store);
  plugin.unintegrate_ndk(session.handle());
  undo_files(store, staging, report);
}

void tell(const Undo& report, bool json) {
  if (json) {
    Json files = Json::array();
    for (const UndoneFile& file : report.files) {
      files.push_back({{"path", file.path}, {"result", file.result}});
    }
    say_json({{"schema", 1},
              {"outcome", report.outcome},
              {"changed", report.changed},
              {"files", files},
              {"message", report.message}});
    return;
  }
  for (const UndoneFile& file : report.files) {
    if (file.result == "restored") {
      say("put back: " + file.path);
    } else if (file.result == "original") {
      say("was the original already: " + file.path);
    } else {
      say("not put back, its directory is gone (its original stays kept): " + file.path);
    }
  }
  if (report.outcome == "failed") {
    complain("not done: " + report.message);
  } else {
    say_always((report.outcome == "undone" ? "done: " : "nothing to undo: ") + report.message);
  }
}

}  // namespace

ExitCode undo(const Plugin& plugin, const Installation& installation, bool json) {
  Session session(installation);
  Undo report;
  try {
    run(plugin, session, report);
  } catch (const std::exception& failure) {
    report.outcome = "failed";
    report.message = failure.what();
  } catch (...) {
    report.outcome = "failed";
    report.message = describe_current_exception();
  }
  tell(report, json);
  return report.outcome == "failed" ? kNotDone : kDone;
}

}  // namespace ndk_integrate
