// One run of integrate_ndk, as the services that it calls see it: they ask here which file to work
// on, and report here what they did. The plug-in tells a host nothing else about it.
//
// The plug-in never works on the compiler's files themselves. `path` answers with the name of a
// staged copy, which the plug-in patches in its own way; the real file changes when the copy is
// committed, by one rename.
#ifndef CONSOLE_HOST_PACKAGE_INTEGRATION_H
#define CONSOLE_HOST_PACKAGE_INTEGRATION_H

#include <cstddef>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "console_host/base/process.h"
#include "console_host/package/lock.h"
#include "console_host/package/store.h"
#include "console_host/services/service_observer.h"

namespace ndk_integrate {

// One of the compiler's templates. A file that is patched in several passes stands here once.
struct PatchedFile {
  enum class Result { kPatched, kMissing, kFailed };

  std::string path;
  std::size_t placeholders = 0;  // how many were replaced, in all passes
  Result result = Result::kPatched;
  std::string staged;  // the name of its staged copy; "" when there is none
};

// The run of the integration script.
struct ScriptRun {
  std::string command;
  int exit_status = 0;
  std::string output;
};

// While one of these lives, the services report to it. There is one at a time.
class Integration : public ServiceObserver {
 public:
  enum class Mode {
    kScout,   // only learn which files the plug-in would patch; no file can be opened, no script
              // runs
    kDryRun,  // patch copies; commit nothing, run no script
    kCommit,  // patch copies, and commit them before the script runs and at the end
  };

  // Files are staged in `staging`. `store` and, in a commit, `lock` are used as long as this object
  // lives.
  Integration(Mode mode, Store& store, std::string staging, const Lock* lock = nullptr);
  // --- For the services ---

  // What `path` answers when the plug-in asks for `path`.
  std::string path_asked(const std::string& path) override;
  void replaced(const std::string& line, const std::string& from, const std::string& to,
                std::size_t count) override;
  void moved(const std::string& to, bool done) override;
  void open_failed() override;  // the file whose path was asked last could not be opened

  // Whether the script is to run now. Commits what is staged before it does.
  bool may_run(const std::string& command) override;
  void started(pid_t process) override;
  void ran(const std::string& command, const ProcessResult& result) override;
  std::string log_line(std::string line) const override { return line; }

  // --- For the commands ---

  // Commits what is staged, or in a dry run only tests it. Call it when integrate_ndk has returned.
  // Throws IncompleteCopy when a copy is not whole.
  void finish();

  // Says that finish() will not come: what is staged stays uncommitted, and its files have failed.
  void abandon();

  const std::vector<PatchedFile>& files() const { return files_; }
  const std::optional<ScriptRun>& script() const { return script_; }
  const std::string& command() const {
    return command_;
  }                                          // of the script, also when it does not run
  bool changed() const { return changed_; }  // true when a file's bytes differ from before

 private:
  // A copy that is being patched.
  struct StagedCopy {
    std::string path;       // the real file
    std::string staged;     // the copy
    std::string before;     // the real file's bytes when the copy was made
    std::size_t line_ends;  // how many the copy has to have
    bool is_patched = false;
    bool is_failed = false;
    std::set<std::string> placeholders;
  };

  bool is_template(const std::string& path) const;
  std::string hide(const std::string& path);
  std::string stage(const std::string& path);
  StagedCopy* staged_copy(const std::string& staged);
  PatchedFile& file(const std::string& path);
  static bool is_whole(const StagedCopy& copy, const std::string& bytes);
  std::vector<Store::Result> whole_results() const;
  void commit();

  ObservedServices observed_{*this};
  Mode mode_;
  Store& store_;
  std::string staging_;
  const Lock* lock_;
  std::vector<PatchedFile> files_;  // in the order in which they were asked for first
  std::vector<StagedCopy> copies_;  // that are not committed
  std::vector<Store::Result> committed_;
  std::optional<ScriptRun> script_;
  std::string command_;
  bool changed_ = false;

  // About the pass that is under way.
  std::string path_;
  std::size_t placeholders_ = 0;
  std::size_t inserted_line_ends_ = 0;
  std::set<std::string> placeholder_texts_;
};

}  // namespace ndk_integrate

#endif
