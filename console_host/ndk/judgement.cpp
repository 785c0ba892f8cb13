#include "console_host/ndk/judgement.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "console_host/base/errors.h"
#include "console_host/base/file.h"
#include "console_host/base/files.h"
#include "console_host/base/paths.h"
#include "console_host/base/text.h"
#include "console_host/ndk/ndk_notes.h"
#include "console_host/services/log.h"

namespace ndk_integrate {

namespace {

struct Finding {
  Reason reason;
  std::string message;
  int error_number = 0;
};

Finding unreadable() {
  const int number = errno;
  return {Reason::kUnreadable, "cannot be read: " + system_error_text(number), number};
}

// Which of the files that every NDK has are there.
struct Markers {
  bool launcher = false;
  bool properties = false;
};

// Why the plug-in found no NDK in `dir`, where a directory is and can be read.
Finding why_incomplete(const std::string& dir, const NdkFacts& facts, const Markers& markers) {
  if (!markers.properties && !facts.old_release.empty()) {
    return {Reason::kPreR11, "an NDK from before r11 (RELEASE.TXT says " + facts.old_release +
                                 "): it has no source.properties, so its release cannot be read"};
  }
  if (markers.launcher) {
    return {Reason::kNoSourceProperties,
            "has ndk-build but no source.properties: an incomplete download?"};
  }
  struct stat status {};
  if (lstat((dir + "/.installer").c_str(), &status) == 0) {
    return {Reason::kInterruptedInstall,
            "the SDK manager was interrupted here (it left .installer, and no ndk-build): let it "
            "install this NDK again"};
  }
  const std::string inside = markers.properties ? "" : newest_ndk_in(dir);
  if (!inside.empty()) {
    return {Reason::kParentOfNdks,
            "holds NDKs but is not one itself; did you mean " + inside + "?"};
  }
  return {Reason::kNoLauncher, "has neither ndk-build nor ndk-build.cmd"};
}

// Why the plug-in found no NDK in `dir`.
Finding why_no_ndk(const std::string& dir, const NdkFacts& facts) {
  struct stat status {};
  if (stat(dir.c_str(), &status) != 0) {
    if (errno == ENOENT || errno == ENOTDIR) {
      return {Reason::kMissing, "no such directory"};
    }
    return unreadable();
  }
  if (!S_ISDIR(status.st_mode)) {
    return {Reason::kNotADirectory, "is a file, not a directory"};
  }
  if (!facts.lacks_properties && faccessat(AT_FDCWD, dir.c_str(), X_OK, AT_EACCESS) != 0) {
    return unreadable();
  }
  Markers markers;
  for (const auto& [name, is_there] :
       {std::pair("/ndk-build", &markers.launcher), std::pair("/ndk-build.cmd", &markers.launcher),
        std::pair("/source.properties", &markers.properties)}) {
    if (is_there == &markers.properties && facts.lacks_properties) {
      continue;
    }
    if (stat((dir + name).c_str(), &status) == 0) {
      *is_there = *is_there || S_ISREG(status.st_mode);
    } else if (errno != ENOENT && errno != ENOTDIR) {
      return unreadable();  // such as a link into elsewhere
    }
  }
  return why_incomplete(dir, facts, markers);
}

// That source.properties of the NDK in `dir` has no usable revision, but `revision`.
Finding no_usable_revision(const std::string& dir, const std::string& revision) {
  const auto finding = [](const std::string& it, int error_number) {
    return Finding{Reason::kUnknownRevision,
                   "source.properties has no usable Pkg.Revision (" + it + ")", error_number};
  };
  if (!revision.empty()) {
    return finding("it says '" + revision + "'", 0);
  }
  try {
    read_whole_file(dir + "/source.properties");
  } catch (const std::system_error& failure) {
    const int number = failure.code().value();
    return finding("cannot be read: " + system_error_text(number), number);
  } catch (const std::runtime_error& failure) {
    return finding(failure.what(), 0);
  }
  return finding("it says nothing", 0);
}

// What an NDK's release is not, when it is not supported.
std::string not_supported(const std::string& list) {
  return "is not among " + (list.empty() ? "the supported releases: there are none" : list);
}

std::string not_asked_for(const Request& request) {
  const std::string asked = request.releases ? request.releases->text() : "";
  return request.asked_by.empty() ? not_supported(asked)
                                  : "is not " + asked + ", which " + request.asked_by + " asks for";
}

// Why the plug-in finds the release of the NDK in `dir` unsupported. `not_asked` is what its
// release is not.
Finding why_unsupported(const std::string& dir, const Judgement& judgement,
                        const std::string& not_asked) {
  const std::string revision = judgement.revision.value_or("");
  if (is_number(revision)) {
    return {Reason::kUpdateUnknown,
            "Pkg.Revision is " + revision + " alone, so which update of r" + revision +
                " this is cannot be told (an old SDK manager rewrote the file)"};
  }
  if (!judgement.release) {
    return no_usable_revision(dir, revision);
  }
  return {Reason::kUnsupportedRelease, *judgement.release + " (" + revision + ") " + not_asked};
}

// True when Pkg.Desc is there and is another package's.
bool is_of_another_package(const NdkFacts& facts) {
  const std::string ndk = "android ndk";
  const std::string description = lower_case(facts.description);
  return !description.empty() &&
         (description.compare(0, ndk.size(), ndk) != 0 ||
          (description.size() > ndk.size() && is_letter_or_digit(description[ndk.size()])));
}

// The verdict that the plug-in left in NDK_PATH_STATUS.
Status status_of(const std::string& text, const std::string& path) {
  for (const Status status :
       {Status::kOk, Status::kNok, Status::kNotWritable, Status::kUnsupported}) {
    if (text == word_of(status)) {
      return status;
    }
  }
  throw std::runtime_error("the plug-in gave no verdict on " + path);
}

Finding why(const std::string& dir, const Judgement& judgement, const NdkFacts& facts,
            const std::string& not_asked) {
  switch (judgement.status) {
    case Status::kOk:
      return {Reason::kOk,
              judgement.release.value_or("") + " (" + judgement.revision.value_or("") + ")"};
    case Status::kNok:
      return why_no_ndk(dir, facts);
    case Status::kNotWritable:
      return {Reason::kNotWritable,
              "an NDK, but you may not write there: run as a user who may, or use a copy"};
    default:
      return why_unsupported(dir, judgement, not_asked);
  }
}

// How what is there differs from what `request` has locked; "" when it does not.
std::string lock_difference(const std::string& dir, const Judgement& judgement,
                            const Request& request) {
  if (!request.lock || judgement.status == Status::kNok) {
    return "";
  }
  return difference(*request.lock,
                    lock_of(dir, judgement.release, judgement.revision.value_or("")));
}

// What the host holds against a directory whatever the plug-in says; it turns the status.
std::optional<Finding> objection(const std::string& dir, const NdkFacts& facts,
                                 const Request& request, Judgement& judgement) {
  if (is_of_another_package(facts)) {
    judgement.status = Status::kNok;
    return Finding{Reason::kNotAnNdk,
                   "not an NDK: source.properties says that it is '" + facts.description + "'"};
  }
  const std::string difference = lock_difference(dir, judgement, request);
  if (!difference.empty()) {
    judgement.status = Status::kNok;
    return Finding{Reason::kLockedDiffers, "not the NDK that is locked: " + difference};
  }
  if (judgement.ok() && request.releases &&
      !request.releases->accept(judgement.release.value_or(""), judgement.revision.value_or(""))) {
    judgement.status = Status::kUnsupported;
  }
  return std::nullopt;
}

// The release that an NDK which the plug-in accepts has for it.
std::string release_of(const Plugin& plugin, const std::string& dir) {
  const HeldLog no_step_of_an_installation;
  return plugin.release(dir);
}

Judgement explained(const Plugin& plugin, const Candidate& candidate, const NdkFacts& facts,
                    const std::string& plugin_status, const Request& request,
                    const std::string& not_asked) {
  const std::string dir = normal_path(candidate.dir);
  Judgement judgement;
  judgement.path = candidate.path;
  judgement.source = candidate.source;
  judgement.status = status_of(plugin_status, candidate.path);
  judgement.prerelease = facts.prerelease;
  judgement.release = facts.release;
  if (!facts.old_release.empty()) {
    judgement.release = facts.old_release;
  } else if (judgement.ok() && !facts.release) {
    judgement.release = release_of(plugin, dir);
  }
  judgement.revision = facts.revision.empty() ? std::nullopt : std::optional(facts.revision);

  const auto turned = objection(dir, facts, request, judgement);
  const Finding finding = turned ? *turned : why(dir, judgement, facts, not_asked);
  judgement.reason = finding.reason;
  judgement.message = finding.message;
  judgement.error_number = finding.error_number;
  judgement.notes = candidate.notes;
  if (judgement.status != Status::kNok) {
    add_notes(dir, facts, judgement.status, request.read_only, judgement.notes);
  }
  return judgement;
}

}  // namespace

Judgement explain(const Plugin& plugin, const Candidate& candidate,
                  const std::string& plugin_status, const std::string& supported) {
  return explained(plugin, candidate, read_facts(plugin, normal_path(candidate.dir)), plugin_status,
                   {}, not_supported(join(split(supported, ";"), ", ")));
}

Judgement explain(const Plugin& plugin, const Candidate& candidate, const NdkFacts& facts,
                  const std::string& plugin_status, const Request& request) {
  return explained(plugin, candidate, facts, plugin_status, request, not_asked_for(request));
}

bool may_be_passed_over(const NdkFacts& facts, const Request& request) {
  return facts.prerelease || request.lock || is_of_another_package(facts) ||
         (request.releases && facts.release &&
          !request.releases->accept(*facts.release, facts.revision));
}

bool is_last_resort(const Judgement& judgement, const Request& request) {
  return judgement.ok() && judgement.prerelease && !request.prerelease && !request.lock;
}

const char* word_of(Status status) {
  switch (status) {
    case Status::kOk:
      return "ok";
    case Status::kNok:
      return "nok";
    case Status::kNotWritable:
      return "notwritable";
    default:
      return "unsupported";
  }
}

const char* word_of(Reason reason) {
  switch (reason) {
    case Reason::kOk:
      return "ok";
    case Reason::kMissing:
      return "missing";
    case Reason::kNotADirectory:
      return "not-a-directory";
    case Reason::kUnreadable:
      return "unreadable";
    case Reason::kPreR11:
      return "pre-r11";
    case Reason::kInterruptedInstall:
      return "interrupted-install";
    case Reason::kParentOfNdks:
      return "parent-of-ndks";
    case Reason::kNoLauncher:
      return "no-launcher";
    case Reason::kNoSourceProperties:
      return "no-source-properties";
    case Reason::kNotAnNdk:
      return "not-an-ndk";
    case Reason::kLockedDiffers:
      return "locked-differs";
    case Reason::kNotWritable:
      return "not-writable";
    case Reason::kUpdateUnknown:
      return "update-unknown";
    case Reason::kUnknownRevision:
      return "unknown-revision";
    case Reason::kBeta:
      return "beta";
    case Reason::kRelativePath:
      return "relative-path";
    case Reason::kBlankInPath:
      return "blank-in-path";
    case Reason::kLauncherNotExecutable:
      return "launcher-not-executable";
    case Reason::kToolchainsNotWritable:
      return "toolchains-not-writable";
    case Reason::kHalfInstalledToolchain:
      return "half-installed-toolchain";
    default:
      return "unsupported-release";
  }
}

}  // namespace ndk_integrate
