// What integrate_ndk did, as seen by the services it called. The plug-in tells a host nothing else
// about it.
#ifndef CONSOLE_HOST_INTEGRATION_RECORD_H
#define CONSOLE_HOST_INTEGRATION_RECORD_H

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

// One of the compiler's templates. A file that is patched in several passes stands here once.
struct PatchedFile {
  enum class Result { kPatched, kMissing, kFailed };

  std::string path;
  std::size_t placeholders = 0;  // how many were replaced, in all passes
  Result result = Result::kPatched;
};

// The run of the integration script.
struct ScriptRun {
  std::string command;
  int exit_status = 0;  // as the shell counts: 128 + N for a script ended by signal N
  std::string output;   // both output streams, as they came
};

// While one of these lives, the services report to it. There is one at a time.
class IntegrationRecord {
 public:
  IntegrationRecord();
  ~IntegrationRecord();
  IntegrationRecord(const IntegrationRecord&) = delete;
  IntegrationRecord& operator=(const IntegrationRecord&) = delete;

  // The record that the services are to report to; null when none is kept.
  static IntegrationRecord* current();

  void path_asked(const std::string& path);
  void replaced(std::size_t placeholders);
  void moved(const std::string& to, bool done);
  void failed();  // the file whose path was asked last could not be opened
  void ran(ScriptRun run);

  const std::vector<PatchedFile>& files() const { return files_; }
  const std::optional<ScriptRun>& script() const { return script_; }

 private:
  PatchedFile& file(const std::string& path);

  std::vector<PatchedFile> files_;  // in the order in which they were patched first
  std::optional<ScriptRun> script_;
  std::string last_path_;
  std::size_t placeholders_ = 0;  // replaced since the last file was moved
};

#endif
