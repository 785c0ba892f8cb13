#include "console_host/package/performance.h"

#include <stdexcept>
#include <utility>

#include "console_host/base/interruption.h"
#include "console_host/package/replacement.h"
#include "console_host/package/staging.h"

namespace ndk_integrate {

Performance::Performance(const Compiler& compiler, Store& store, const Directory& staging,
                         InstallationRecord record, ScriptWatcher& watcher)
    : StagedRun(compiler, store, staging), record_(std::move(record)), watcher_(watcher) {}

void Performance::run(const Plugin& plugin, Session& session) {
  const ObservedServices observed(*this);
  try {
    plugin.integrate_ndk(session.handle());
    commit();
    look_once_more();
  } catch (...) {
    for (const Copy& copy : copies()) {
      if (!copy.is_committed) {
        file(copy.path).result = TemplateFile::Result::kFailed;
      }
    }
    throw;
  }
  record_.is_finished = !script_ || script_->exit_status == 0;
  store().settle(record_, changed_since_);
}

Store::Original Performance::original_of(const std::string& path, const Found& found) {
  if (const std::string edited = store().why_edited(path, found); !edited.empty()) {
    throw std::runtime_error(edited);
  }
  Store::Original original = store().original(path, found);
  store().keep(path, original);
  require_own(staging());  // what was made for the tree's owner was not this
  return original;
}

void Performance::refused(const std::string& /*path*/) { throw; }

// What the rehearsal found there has gone since.
void Performance::open_failed() {
  StagedRun::open_failed();
  const std::string why = why_not_a_template(asked_last());
  throw std::runtime_error(why.empty() ? "the template " + asked_last() + " could not be opened"
                                       : why);
}

bool Performance::may_run(const std::string& command) {
  set_command(command);
  commit();  // the script uses the toolchain definitions
  if (const std::string why = why_not_runnable(command); !why.empty()) {
    throw std::runtime_error(why);
  }
  throw_if_interrupted();
  watcher_.begins(command);
  return true;
}

void Performance::ran(const std::string& command, const ProcessResult& result) {
  watcher_.ended();
  script_ = {command, result.exit_status, result.output};
}

void Performance::require_whole(const Copy& copy) const {
  if (!copy.is_whole || !look_at_copy(copy).holds(copy.bytes)) {
    throw IncompleteCopy(copy.path);
  }
  if (!look_at(copy.place.directory, copy.place.entry).holds(copy.before)) {
    throw std::runtime_error(copy.path +
                             " was changed by someone else just now; it is left as it is");
  }
}

// Puts the copies that were patched since the last commit in their places. The results are noted
// before the first of them is.
void Performance::commit() {
  std::vector<Store::Result> results;
  for (const Copy& copy : copies()) {
    if (copy.is_patched && !copy.is_committed) {
      require_whole(copy);
      results.push_back({copy.path, copy.bytes, copy.original, copy.placeholders});
    }
  }
  if (results.empty()) {
    return;
  }
  store().note(record_, results);
  for (Copy& copy : copies()) {
    if (copy.is_patched && !copy.is_committed) {
      put_in_place(copy);
    }
  }
}

void Performance::put_in_place(Copy& copy) {
  if (copy.bytes != copy.before) {
    const Found staged = look_at_copy(copy);
    if (!staged.holds(copy.bytes)) {
      throw IncompleteCopy(copy.path);
    }
    put_in_place(copy, *staged.file);
  }
  copy.is_committed = true;
}

void Performance::put_in_place(const Copy& copy, const File& staged) {
  store().tree().dress(staged, &copy.model, copy.model.status().st_mode & kModeBits,
                       copy.is_secret_of_root);
  const std::string entry = StagingDirectory::commit_name(store(), copy.path);
  staging().rename(copy.entry, staging(), entry);
  const bool changed_before = changed_;
  changed_ = true;  // until it is certain that it was not
  try {
    replace({staging(), entry, staged, copy.place, copy.before});
  } catch (...) {
    changed_ = changed_before || is_in_place(staged, copy.place);
    throw;
  }
}

// The script, or anybody, may have changed what was committed. The results that are known of such a
// file are then not forgotten.
void Performance::look_once_more() {
  for (const TemplateFile& file : files()) {
    if (file.is_staged && !store().tree().look(file.path).holds(file.after)) {
      changed_since_.insert(file.path);
    }
  }
}

std::vector<std::string> Performance::warnings() const {
  std::vector<std::string> warnings;
  for (const std::string& path : changed_since_) {
    warnings.push_back(path +
                       " was changed by someone else after it had been filled in, perhaps by the "
                       "integration script; undo will stop there, and undo with --force " +
                       path + " keeps that change beside it");
  }
  return warnings;
}

}  // namespace ndk_integrate
