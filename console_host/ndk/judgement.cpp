#include "console_host/ndk/judgement.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <fstream>
#include <iomanip>
#include <regex>
#include <stdexcept>

#include "console_host/base/errors.h"
#include "console_host/base/files.h"
#include "console_host/base/paths.h"
#include "console_host/base/properties.h"
#include "console_host/base/text.h"
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

// Why the plug-in found no NDK in `dir`.
Finding why_no_ndk(const std::string& dir) {
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
  if (faccessat(AT_FDCWD, dir.c_str(), X_OK, AT_EACCESS) != 0) {
    return unreadable();
  }
  for (const char* marker : {"/ndk-build", "/ndk-build.cmd", "/source.properties"}) {
    if (stat((dir + marker).c_str(), &status) != 0 && errno == EACCES) {
      return unreadable();  // a link into elsewhere
    }
  }
  const bool has_properties = is_ordinary_file(dir + "/source.properties");
  const std::string old_release = release_before_r11(dir);
  if (!has_properties && !old_release.empty()) {
    return {Reason::kPreR11, "an NDK from before r11 (RELEASE.TXT says " + old_release +
                                 "): it has no source.properties, so its release cannot be read"};
  }
  if (!is_ordinary_file(dir + "/ndk-build") && !is_ordinary_file(dir + "/ndk-build.cmd")) {
    return {Reason::kNoLauncher, "has neither ndk-build nor ndk-build.cmd"};
  }
  return {Reason::kNoSourceProperties,
          "has ndk-build but no source.properties: an incomplete download?"};
}

// What source.properties of the NDK in `dir` says instead of a usable revision.
std::string what_it_says(const std::string& dir, const std::string& revision) {
  if (!revision.empty()) {
    return "it says '" + revision + "'";
  }
  if (faccessat(AT_FDCWD, (dir + "/source.properties").c_str(), R_OK, AT_EACCESS) != 0) {
    return "cannot be read: " + system_error_text(errno);
  }
  return "it says nothing";
}

// Why the plug-in finds the release of the NDK in `dir` unsupported.
Finding why_unsupported(const std::string& dir, const Judgement& judgement,
                        const std::string& supported) {
  const std::string revision = judgement.revision.value_or("");
  if (is_number(revision)) {
    return {Reason::kUpdateUnknown,
            "Pkg.Revision is " + revision + " alone, so which update of r" + revision +
                " this is cannot be told (an old SDK manager rewrote the file)"};
  }
  if (!judgement.release) {
    return {Reason::kUnknownRevision,
            "source.properties has no usable Pkg.Revision (" + what_it_says(dir, revision) + ")"};
  }
  std::string list;
  for (const std::string& release : split(supported, ";")) {
    list += (list.empty() ? "" : ", ") + release;
  }
  return {Reason::kUnsupportedRelease,
          *judgement.release + " (" + revision + ") is not among " +
              (list.empty() ? "the supported releases: there are none" : list)};
}

// The release of the NDK in `dir` as the plug-in tells it.
std::string release_of(const Plugin& plugin, const std::string& dir) {
  const HeldLog no_step_of_an_installation;
  return plugin.release(dir);
}

// True for "21.4.7075529", "21.4" and "29.0-beta4": a release number and an update that has a
// letter, and behind them what a third number or a beta adds.
bool is_usable_revision(const std::string& revision) {
  const std::vector<std::string> pieces = split(revision, ".");
  if (pieces.size() < 2) {
    return false;
  }
  const std::size_t end = pieces[1].find_first_not_of("0123456789");
  const std::string update = pieces[1].substr(0, end);
  const bool ends_there =
      end == std::string::npos || std::isalnum(static_cast<unsigned char>(pieces[1][end])) == 0;
  constexpr std::size_t kMostDigits = 9;  // as many as fit 32 bits whatever they are
  constexpr int kLastLetter = 25;
  return is_number(pieces[0]) && pieces[0].size() <= kMostDigits && is_number(update) &&
         update.size() <= kMostDigits && std::stoi(update) <= kLastLetter && ends_there;
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

Finding why(const std::string& dir, const Judgement& judgement, const std::string& supported) {
  switch (judgement.status) {
    case Status::kOk:
      return {Reason::kOk,
              judgement.release.value_or("") + " (" + judgement.revision.value_or("") + ")"};
    case Status::kNok:
      return why_no_ndk(dir);
    case Status::kNotWritable:
      return {Reason::kNotWritable,
              "an NDK, but you may not write there: run as a user who may, or use a copy"};
    default:
      return why_unsupported(dir, judgement, supported);
  }
}

}  // namespace

std::string release_before_r11(const std::string& dir) {
  const std::string file = dir + "/RELEASE.TXT";
  if (!is_ordinary_file(file)) {
    return "";
  }
  std::ifstream in(file);
  std::string word;
  constexpr int kLongEnough = 16;
  in >> std::setw(kLongEnough) >> word;
  static const std::regex before_r11("(r([1-9]|10)[a-z]?)([^a-z0-9].*)?");
  std::smatch match;
  return std::regex_match(word, match, before_r11) ? match[1].str() : "";
}

std::string read_revision(const std::string& dir) {
  const Properties properties = read_properties(dir + "/source.properties", "=");
  const auto found = properties.find("Pkg.Revision");
  return found == properties.end() ? "" : found->second;
}

std::optional<std::string> readable_release(const Plugin& plugin, const std::string& dir) {
  return is_usable_revision(read_revision(dir)) ? std::optional(release_of(plugin, dir))
                                                : std::nullopt;
}

Judgement explain(const Plugin& plugin, const Candidate& candidate,
                  const std::string& plugin_status, const std::string& supported) {
  const std::string dir = normal_path(candidate.dir);
  Judgement judgement;
  judgement.path = candidate.path;
  judgement.status = status_of(plugin_status, candidate.path);
  if (judgement.status != Status::kNok) {
    judgement.release = judgement.ok() ? release_of(plugin, dir) : readable_release(plugin, dir);
    const std::string revision = read_revision(dir);
    judgement.revision = revision.empty() ? std::nullopt : std::optional(revision);
  }
  const Finding finding = why(dir, judgement, supported);
  judgement.reason = finding.reason;
  judgement.message = finding.message;
  judgement.error_number = finding.error_number;
  return judgement;
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
    case Reason::kNoLauncher:
      return "no-launcher";
    case Reason::kNoSourceProperties:
      return "no-source-properties";
    case Reason::kNotWritable:
      return "not-writable";
    case Reason::kUpdateUnknown:
      return "update-unknown";
    case Reason::kUnknownRevision:
      return "unknown-revision";
    default:
      return "unsupported-release";
  }
}

}  // namespace ndk_integrate
