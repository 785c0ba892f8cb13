// A run of integrate_ndk on copies. The plug-in never works on the compiler's files themselves:
// `path` answers with the name of a staged copy, which the plug-in patches in its own way, and for
// anything else below the compiler's directory with a name that leads nowhere. What the services
// replaced tells which bytes each copy must hold.
#ifndef CONSOLE_HOST_PACKAGE_STAGED_RUN_H
#define CONSOLE_HOST_PACKAGE_STAGED_RUN_H

#include <cstddef>
#include <deque>
#include <set>
#include <string>
#include <vector>

#include "console_host/base/directory.h"
#include "console_host/package/compiler.h"
#include "console_host/package/compiler_tree.h"
#include "console_host/package/store.h"
#include "console_host/services/service_observer.h"

namespace ndk_integrate {

// One of the compiler's templates. A file that is patched in several passes stands here once.
struct TemplateFile {
  enum class Result { kPatched, kMissing, kFailed };

  std::string path;
  std::size_t placeholders = 0;  // how many were replaced, in all passes
  Result result = Result::kPatched;
  std::string before;      // its bytes when its copy was made; "" where none was
  std::string after;       // what its copy holds
  bool is_staged = false;  // whether it has a copy
};

// What Rehearsal and Performance share: the copies. They are made in the order in which the plug-in
// asks for the files.
class StagedRun : public ServiceObserver {
 public:
  // The files that the plug-in asked for, in that order.
  const std::vector<TemplateFile>& files() const { return files_; }

  // The command line of the integration script, also where it does not run; "" when there is none.
  const std::string& command() const { return command_; }

  std::string path_asked(const std::string& path) override;
  void replaced(const std::string& line, const std::string& from, std::size_t count,
                const std::string& result) override;
  void moved(const std::string& to, bool done) override;
  void open_failed() override;
  std::string log_line(std::string line) const override;

 protected:
  // Copies are made in the directory `staging`, which must live as long as this object. Throws
  // std::runtime_error when the plug-in, which opens files by name, could be misled to others.
  StagedRun(const Compiler& compiler, Store& store, const Directory& staging);

  struct Copy {
    std::string path;      // the real file
    Place place;           // where it is
    File model;            // the real file itself, open
    std::string entry;     // the copy, in the staging directory
    std::string before;    // the real file's bytes when the copy was made
    std::string original;  // the bytes that the copy started from
    std::string bytes;     // what the copy must hold
    std::set<std::string> placeholders;
    bool is_secret_of_root = false;
    bool is_patched = false;
    bool is_whole = true;
    bool is_committed = false;
  };

  // What the copy of the template `path`, which is `found`, starts from. May throw to refuse it.
  virtual Store::Original original_of(const std::string& path, const Found& found) = 0;

  // The template `path` was asked for and has no copy because of what is being thrown. Throws on,
  // or notes it, which lets the plug-in go on with a name that leads nowhere.
  virtual void refused(const std::string& path) = 0;

  // Throws std::runtime_error, naming the template, when it cannot be read.
  Found look_at_copy(const Copy& copy) const;

  // Why the template `path` cannot be filled in, "" when it could: what is there is missing, or not
  // an ordinary file that may be trusted, or in a place that must not be looked at.
  std::string why_not_a_template(const std::string& path) const;

  // Why the script that `command` begins with cannot be run from the working directory, which the
  // plug-in has made that of the toolchain definitions; "" when it can.
  std::string why_not_runnable(const std::string& command) const;

  TemplateFile& file(const std::string& path);

  // What `path` was asked for last.
  const std::string& asked_last() const { return pass_.path; }

  std::deque<Copy>& copies() { return copies_; }
  const std::deque<Copy>& copies() const { return copies_; }
  void set_command(const std::string& command) { command_ = command; }
  const Compiler& compiler() const { return compiler_; }
  Store& store() { return store_; }
  const Store& store() const { return store_; }
  const Directory& staging() const { return staging_; }

 private:
  // What is known of the patching of a file while it is under way.
  struct Pass {
    std::string path;
    std::string input;   // the lines that were read, each with a line end
    std::string output;  // what was made of them
    std::size_t placeholders = 0;
    std::set<std::string> placeholder_texts;
  };

  std::string name_of(const std::string& entry) const { return staging_name_ + "/" + entry; }
  std::string nowhere() const { return name_of("nowhere"); }
  std::string why_not_a_template(const std::string& path, const Found& found) const;
  std::string stage(const std::string& path);
  bool is_missing(const std::string& path) const;
  Copy& make_copy(const std::string& path, const Place& place, Found found);
  Copy* copy_at(const std::string& staged);
  bool holds_what_it_must(const Copy& copy) const;

  const Compiler& compiler_;
  Store& store_;
  const Directory& staging_;
  std::string staging_name_;  // by which the plug-in reaches it
  std::vector<TemplateFile> files_;
  std::deque<Copy> copies_;
  std::size_t copies_begun_ = 0;  // with those that a full disk cut short
  std::string command_;
  Pass pass_;
};

}  // namespace ndk_integrate

#endif
