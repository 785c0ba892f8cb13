// What an installation did, and how it is told.
#ifndef CONSOLE_HOST_COMMANDS_REPORT_H
#define CONSOLE_HOST_COMMANDS_REPORT_H

#include <optional>
#include <string>
#include <vector>

#include "console_host/commands/exit_code.h"
#include "console_host/commands/output.h"
#include "console_host/commands/verify.h"
#include "console_host/ndk/judgement.h"
#include "console_host/package/performance.h"
#include "console_host/package/removal.h"

namespace ndk_integrate {

struct Report {
  enum class Outcome {
    kIntegrated,
    kDisabled,     // the templates are filled in, for no NDK
    kNotSelected,  // no component asks for the integration
    kNoNdk,
    kFailed,
  };

  bool is_dry_run = false;
  bool is_optional = false;  // where there is nothing to do, that is well
  bool is_json = false;
  bool keeps_former_ndk = false;   // the NDK that it was installed for is left alone
  bool is_to_be_verified = false;  // at the end

  Outcome outcome = Outcome::kFailed;
  bool is_nothing_to_do = false;  // with kNotSelected and kNoNdk: it is not an error here
  bool changed = false;           // true when a byte of the compiler's files differs from before
  std::optional<std::string> ndk;
  std::optional<std::string> release;
  std::optional<std::string> component;
  std::vector<Judgement> candidates;  // that were judged
  std::vector<TemplateFile> files;
  std::string command;  // of the script, also where it did not run; "" where there is none
  std::optional<ScriptRun> script;
  std::optional<Removal> removal;            // from the NDK that the compiler was installed for
  std::optional<Verification> verification;  // where one was asked for and it came to that
  std::vector<std::string> problems;         // that stood against the installation
  std::vector<std::string> warnings;
  std::string message;

  bool is_done() const { return outcome == Outcome::kIntegrated || outcome == Outcome::kDisabled; }
};

// Tells the steps and the end of an installation, to people or as one JSON object, and returns the
// exit code that goes with it. What went before the templates has been told as it came.
ExitCode tell(const Report& report);

// Tells what was done about an NDK that the compiler was installed for, or in a dry run would be;
// to people, and as an object or null.
void tell_removal(const Removal& removal, bool is_dry_run);
Json json_of_removal(const std::optional<Removal>& removal);

}  // namespace ndk_integrate

#endif
