// The first of the two runs of integrate_ndk: on copies that are thrown away, with no script. It
// finds out all that would go wrong, and what would come of it when nothing does.
#ifndef CONSOLE_HOST_PACKAGE_REHEARSAL_H
#define CONSOLE_HOST_PACKAGE_REHEARSAL_H

#include <map>
#include <string>
#include <vector>

#include "console_host/package/staged_run.h"

namespace ndk_integrate {

class Rehearsal : public StagedRun {
 public:
  Rehearsal(const Compiler& compiler, Store& store, const Directory& staging);

  // Runs integrate_ndk. Changes the working directory as the plug-in does.
  void run(const Plugin& plugin, Session& session);

  // Everything that stands against the installation, each as a sentence; empty when nothing does.
  std::vector<std::string> problems() const;

  // What looks wrong in the templates and stands against nothing.
  std::vector<std::string> warnings() const;

  // True when the installation would change a byte of the compiler's files.
  bool would_change() const;

  bool may_run(const std::string& command) override;
  void ran(const std::string& /*command*/, const ProcessResult& /*result*/) override {}

 private:
  Store::Original original_of(const std::string& path, const Found& found) override;
  std::string unwritable_directory_of(const std::string& path) const;
  void refused(const std::string& path) override;

  // What stands against the template `file`; "" when nothing does.
  std::string problem_of(const TemplateFile& file) const;

  std::map<std::string, std::string> refusals_;  // by file
  std::string script_problem_;
};

}  // namespace ndk_integrate

#endif
