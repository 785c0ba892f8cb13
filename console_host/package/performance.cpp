#include "console_host/package/performance.h"

#include <stdexcept>
#include <utility>
#include <vector>

#include "console_host/base/durable_file.h"
#include "console_host/base/paths.h"

namespace ndk_integrate {

Performance::Performance(const Compiler& compiler, Store& store, std::string staging,
                         InstallationRecord record)
    : StagedRun(compiler, store, std::move(staging)), record_(std::move(record)) {}

void Performance::run(const Plugin& plugin, Session& session) {
  const ObservedServices observed(*this);
  try {
    plugin.integrate_ndk(session.handle());
    commit();
  } catch (...) {
    for (const Copy& copy : copies()) {
      if (!copy.is_committed) {
        file(copy.path).result = TemplateFile::Result::kFailed;
      }
    }
    throw;
  }
  record_.is_finished = !script_ || script_->exit_status == 0;
  store().settle(record_);
}

std::string Performance::starting_bytes(const std::string& path) {
  store().refuse_edited(path);
  const Store::Original original = store().original(path);
  store().keep(path, original);
  return original.bytes;
}

void Performance::refused(const std::string& /*path*/) { throw; }

bool Performance::may_run(const std::string& command) {
  set_command(command);
  commit();  // the script uses the toolchain definitions
  return true;
}

void Performance::ran(const std::string& command, const ProcessResult& result) {
  script_ = {command, result.exit_status, result.output};
}

void Performance::require_whole(const Copy& copy) {
  if (!copy.is_whole || read_whole_file(copy.staged) != copy.bytes) {
    throw IncompleteCopy(copy.path);
  }
  if (read_whole_file(copy.path) != copy.before) {
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
      results.push_back({copy.path, copy.bytes, copy.placeholders});
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
    flush_to_disk(copy.staged);
    rename_file(copy.staged, copy.path);
    changed_ = true;
    flush_to_disk(directory_of(copy.path));
  }
  copy.is_committed = true;
}

}  // namespace ndk_integrate
