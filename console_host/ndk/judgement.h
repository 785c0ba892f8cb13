// The plug-in's verdict on one directory, and the reason for it.
#ifndef CONSOLE_HOST_NDK_JUDGEMENT_H
#define CONSOLE_HOST_NDK_JUDGEMENT_H

#include <optional>
#include <string>

#include "console_host/ndk/plugin.h"

namespace ndk_integrate {

enum class Status { kOk, kNok, kNotWritable, kUnsupported };

enum class Reason {
  kOk,
  kMissing,
  kNotADirectory,
  kUnreadable,
  kPreR11,
  kNoLauncher,
  kNoSourceProperties,
  kNotWritable,
  kUpdateUnknown,
  kUnknownRevision,
  kUnsupportedRelease,
};

// The word for programs: "notwritable", as the plug-in says it; "no-launcher".
const char* word_of(Status status);
const char* word_of(Reason reason);

struct Judgement {
  std::string path;  // the directory, as it was given
  Status status = Status::kNok;
  Reason reason = Reason::kMissing;
  std::optional<std::string> release;   // "r21e", where it can be told
  std::optional<std::string> revision;  // "21.4.7075529", as source.properties says it
  std::string message;                  // the reason as a person is told it
  int error_number = 0;                 // of the system call that failed, where one did

  bool ok() const { return status == Status::kOk; }
};

// A directory to judge.
struct Candidate {
  std::string path;  // as it was given
  std::string dir;   // absolute: what the plug-in gets
};

// Why the plug-in gave `candidate` the verdict that it left in NDK_PATH_STATUS, `plugin_status`, when
// `supported` was the list of supported releases.
Judgement explain(const Plugin& plugin, const Candidate& candidate,
                  const std::string& plugin_status, const std::string& supported);

// The release of the NDK in `dir` as the plug-in tells it, where it can be told.
std::optional<std::string> readable_release(const Plugin& plugin, const std::string& dir);

// The release that RELEASE.TXT of the NDK in `dir` names, such as "r10e": one from before r11; else
// "".
std::string release_before_r11(const std::string& dir);

// The property Pkg.Revision of the NDK in `dir`; "" when there is none.
std::string read_revision(const std::string& dir);

}  // namespace ndk_integrate

#endif
