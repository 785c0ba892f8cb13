// The second of the two runs of integrate_ndk: its copies take the places of the compiler's files,
// before the script runs and at the end.
#ifndef CONSOLE_HOST_PACKAGE_PERFORMANCE_H
#define CONSOLE_HOST_PACKAGE_PERFORMANCE_H

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "console_host/package/script_run.h"
#include "console_host/package/staged_run.h"

namespace ndk_integrate {

class Performance : public StagedRun {
 public:
  // `record` is what is kept of the installation; `watcher`, the caller's, follows the script.
  Performance(const Compiler& compiler, Store& store, const Directory& staging,
              InstallationRecord record, ScriptWatcher& watcher);

  // Runs integrate_ndk and commits what it made. Throws std::runtime_error, IncompleteCopy where a
  // copy is not whole, when that does not come to its end; what was committed until then is whole.
  void run(const Plugin& plugin, Session& session);

  const std::optional<ScriptRun>& script() const { return script_; }

  // True when a byte of the compiler's files was changed.
  bool changed() const { return changed_; }

  // What a person should know of the files although it was done.
  std::vector<std::string> warnings() const;

  bool may_run(const std::string& command) override;
  ProcessWatcher* watcher() override { return &watcher_; }
  void ran(const std::string& command, const ProcessResult& result) override;

 private:
  void open_failed() override;
  Store::Original original_of(const std::string& path, const Found& found) override;
  [[noreturn]] void refused(const std::string& path) override;

  void require_whole(const Copy& copy) const;
  void commit();
  void put_in_place(Copy& copy);
  void put_in_place(const Copy& copy, const File& staged);
  void look_once_more();

  InstallationRecord record_;
  ScriptWatcher& watcher_;
  std::optional<ScriptRun> script_;
  bool changed_ = false;
  std::set<std::string> changed_since_;  // files that somebody changed after they were committed
};

}  // namespace ndk_integrate

#endif
