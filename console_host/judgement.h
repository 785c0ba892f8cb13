// The plug-in's verdict on one directory, and the reason for it.
#ifndef CONSOLE_HOST_JUDGEMENT_H
#define CONSOLE_HOST_JUDGEMENT_H

#include <optional>
#include <string>

#include "console_host/output.h"
#include "console_host/plugin.h"

struct Judgement {
  std::string path;    // the directory, as it was given
  std::string status;  // the plug-in's verdict: "ok", "nok", "notwritable" or "unsupported"
  std::string reason;  // a fixed word for programs: "ok", "missing", "no-launcher", ...
  std::optional<std::string> release;   // "r21e", where it can be told
  std::optional<std::string> revision;  // "21.4.7075529", as source.properties says it
  std::string message;                  // the reason as a person is told it

  bool ok() const { return status == "ok"; }
};

// A directory to judge.
struct Candidate {
  std::string path;  // as it was given
  std::string dir;   // absolute: what the plug-in gets
};

// Why the plug-in gave the verdict `status` to `candidate` when `supported` was the list of
// supported releases.
Judgement explain(const Plugin& plugin, const Candidate& candidate, const std::string& status,
                  const std::string& supported);

// The release of the NDK in `dir` as the plug-in tells it, where it can be told.
std::optional<std::string> readable_release(const Plugin& plugin, const std::string& dir);

// The property Pkg.Revision of the NDK in `dir`; "" when there is none.
std::string read_revision(const std::string& dir);

Json to_json(const Judgement& judgement);

#endif
