// The second of the two runs of integrate_ndk: its copies take the places of the compiler's files,
// before the script runs and at the end.
#ifndef CONSOLE_HOST_PACKAGE_PERFORMANCE_H
#define CONSOLE_HOST_PACKAGE_PERFORMANCE_H

#include <optional>
#include <string>

#include "console_host/package/script_run.h"
#include "console_host/package/staged_run.h"

namespace ndk_integrate {

class Performance : public StagedRun {
 public:
  // `record` is what is kept of the installation.
  Performance(const Compiler& compiler, Store& store, std::string staging,
              InstallationRecord record);

  // Runs integrate_ndk and commits what it made. Throws std::runtime_error, IncompleteCopy where a
  // copy is not whole, when that does not come to its end; what was committed until then is whole.
  void run(const Plugin& plugin, Session& session);

  const std::optional<ScriptRun>& script() const { return script_; }

  // True when a byte of the compiler's files was changed.
  bool changed() const { return changed_; }

  bool may_run(const std::string& command) override;
  void ran(const std::string& command, const ProcessResult& result) override;

 private:
  std::string starting_bytes(const std::string& path) override;
  [[noreturn]] void refused(const std::string& path) override;

  static void require_whole(const Copy& copy);
  void commit();
  void put_in_place(Copy& copy);

  InstallationRecord record_;
  std::optional<ScriptRun> script_;
  bool changed_ = false;
};

}  // namespace ndk_integrate

#endif
