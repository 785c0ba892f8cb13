// The plug-in's verdict on one directory, and the reason for it.
#ifndef CONSOLE_HOST_NDK_JUDGEMENT_H
#define CONSOLE_HOST_NDK_JUDGEMENT_H

#include <optional>
#include <string>
#include <vector>

#include "console_host/ndk/asked_releases.h"
#include "console_host/ndk/ndk_facts.h"
#include "console_host/ndk/ndk_lock.h"
#include "console_host/ndk/plugin.h"

namespace ndk_integrate {

enum class Status { kOk, kNok, kNotWritable, kUnsupported };

enum class Reason {
  kOk,
  kMissing,
  kNotADirectory,
  kUnreadable,
  kPreR11,
  kInterruptedInstall,
  kParentOfNdks,
  kNoLauncher,
  kNoSourceProperties,
  kNotAnNdk,
  kLockedDiffers,
  kNotWritable,
  kUpdateUnknown,
  kUnknownRevision,
  kUnsupportedRelease,
  // Of notes only:
  kBeta,
  kRelativePath,
  kBlankInPath,
  kLauncherNotExecutable,
  kToolchainsNotWritable,
  kHalfInstalledToolchain,
};

// The word for programs: "notwritable", as the plug-in says it; "no-launcher".
const char* word_of(Status status);
const char* word_of(Reason reason);

// What is worth knowing of a directory, and rejects nothing.
struct Note {
  Reason reason;
  std::string message;
};

struct Judgement {
  std::string path;    // the directory, as it was given
  std::string source;  // where it comes from: "ANDROID_NDK_HOME"
  Status status = Status::kNok;
  Reason reason = Reason::kMissing;
  std::optional<std::string> release;   // "r21e", where it can be told
  std::optional<std::string> revision;  // "21.4.7075529", as source.properties says it
  bool prerelease = false;              // a beta or the like
  std::string message;                  // the reason as a person is told it
  std::vector<Note> notes;
  int error_number = 0;  // of the system call that failed, where one did

  bool ok() const { return status == Status::kOk; }
};

// A directory to judge.
struct Candidate {
  std::string path;  // as it was given
  std::string dir;   // absolute: what the plug-in gets
  std::string source = {};
  bool is_named = false;  // by a variable or a project, so that a mistake is told with a hint
  std::vector<Note> notes = {};
};

// What is wanted of an NDK beyond what the plug-in judges.
struct Request {
  std::optional<AskedReleases> releases;  // without it any release that can be read
  std::string asked_by;                   // "ndkVersion in /project/build.gradle"; "" for the user
  std::optional<NdkLock> lock;            // exactly this one
  bool read_only = false;                 // also one that the user cannot write to
  bool prerelease = false;                // a beta as soon as any other
};

// Why the plug-in gave `candidate` the verdict that it left in NDK_PATH_STATUS, `plugin_status`,
// when `supported` was the list of supported releases.
Judgement explain(const Plugin& plugin, const Candidate& candidate,
                  const std::string& plugin_status, const std::string& supported);

// The same where `facts` were read before and more is wanted, which may turn the verdict.
Judgement explain(const Plugin& plugin, const Candidate& candidate, const NdkFacts& facts,
                  const std::string& plugin_status, const Request& request);

// True when the host may pass over an NDK with these facts that the plug-in accepts.
bool may_be_passed_over(const NdkFacts& facts, const Request& request);

// True when the NDK is good but not to be taken as long as another is: a beta nobody asked for.
bool is_last_resort(const Judgement& judgement, const Request& request);

}  // namespace ndk_integrate

#endif
