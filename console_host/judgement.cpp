#include "console_host/judgement.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iomanip>
#include <regex>
#include <stdexcept>

#include "console_host/log.h"
#include "host/host.h"

namespace {

struct Reason {
  std::string word;
  std::string message;
};

// What the system says of the last call that failed, in the middle of a sentence.
std::string system_error_text() {
  std::string text = std::strerror(errno);
  text[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(text[0])));
  return text;
}

// The release that RELEASE.TXT of an NDK from before r11 begins with, such as "r10e"; "" when this
// is none.
std::string release_before_r11(const std::string& dir) {
  const std::string file = dir + "/RELEASE.TXT";
  if (file_exists(file, false) == 0) {
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

// Why the plug-in found no NDK in `dir`.
Reason why_no_ndk(const std::string& dir) {
  struct stat status {};
  if (stat(dir.c_str(), &status) != 0) {
    if (errno == ENOENT || errno == ENOTDIR) {
      return {"missing", "no such directory"};
    }
    return {"unreadable", "cannot be read: " + system_error_text()};
  }
  if (!S_ISDIR(status.st_mode)) {
    return {"not-a-directory", "is a file, not a directory"};
  }
  if (faccessat(AT_FDCWD, dir.c_str(), X_OK, AT_EACCESS) != 0) {
    return {"unreadable", "cannot be read: " + system_error_text()};
  }
  for (const char* marker : {"/ndk-build", "/ndk-build.cmd", "/source.properties"}) {
    if (stat((dir + marker).c_str(), &status) != 0 && errno == EACCES) {
      return {"unreadable", "cannot be read: " + system_error_text()};  // a link into elsewhere
    }
  }
  const bool has_properties = file_exists(dir + "/source.properties", false) != 0;
  const std::string old_release = release_before_r11(dir);
  if (!has_properties && !old_release.empty()) {
    return {"pre-r11", "an NDK from before r11 (RELEASE.TXT says " + old_release +
                           "): it has no source.properties, so its release cannot be read"};
  }
  if (file_exists(dir + "/ndk-build", false) == 0 &&
      file_exists(dir + "/ndk-build.cmd", false) == 0) {
    return {"no-launcher", "has neither ndk-build nor ndk-build.cmd"};
  }
  return {"no-source-properties",
          "has ndk-build but no source.properties: an incomplete download?"};
}

// What source.properties of the NDK in `dir` says instead of a usable revision.
std::string what_it_says(const std::string& dir, const std::string& revision) {
  if (!revision.empty()) {
    return "it says '" + revision + "'";
  }
  if (faccessat(AT_FDCWD, (dir + "/source.properties").c_str(), R_OK, AT_EACCESS) != 0) {
    return "cannot be read: " + system_error_text();
  }
  return "it says nothing";
}

bool is_number(const std::string& text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

// Why the plug-in finds the release of the NDK in `dir` unsupported.
Reason why_unsupported(const std::string& dir, const Judgement& judgement,
                       const std::string& supported) {
  const std::string revision = judgement.revision.value_or("");
  if (is_number(revision)) {
    return {"update-unknown", "Pkg.Revision is " + revision + " alone, so which update of r" +
                                  revision +
                                  " this is cannot be told (an old SDK manager rewrote the file)"};
  }
  if (!judgement.release) {
    return {"unknown-revision",
            "source.properties has no usable Pkg.Revision (" + what_it_says(dir, revision) + ")"};
  }
  std::string list;
  for (const std::string& release : splitString(supported, ";", false)) {
    list += (list.empty() ? "" : ", ") + release;
  }
  return {"unsupported-release",
          *judgement.release + " (" + revision + ") is not among " +
              (list.empty() ? "the supported releases: there are none" : list)};
}

// The release of the NDK in `dir` as the plug-in tells it.
std::string release_of(const Plugin& plugin, const std::string& dir) {
  const LogPause no_step_of_an_installation;
  return plugin.release(dir);
}

// True for "21.4.7075529", "21.4" and "29.0-beta4": a release number and an update that has a
// letter, and behind them what a third number or a beta adds.
bool is_usable_revision(const std::string& revision) {
  const std::vector<std::string> pieces = splitString(revision, ".", false);
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
         update.size() <= kMostDigits && strtoint(update) <= kLastLetter && ends_there;
}

}  // namespace

std::string read_revision(const std::string& dir) {
  return IniDb(dir, "source.properties", "=").value("Pkg.Revision");
}

std::optional<std::string> readable_release(const Plugin& plugin, const std::string& dir) {
  return is_usable_revision(read_revision(dir)) ? std::optional(release_of(plugin, dir))
                                                : std::nullopt;
}

Judgement explain(const Plugin& plugin, const Candidate& candidate, const std::string& status,
                  const std::string& supported) {
  const std::string dir = path(candidate.dir);
  Judgement judgement{candidate.path, status, "", std::nullopt, std::nullopt, ""};
  if (status != "nok") {
    judgement.release = status == "ok" ? release_of(plugin, dir) : readable_release(plugin, dir);
    const std::string revision = read_revision(dir);
    judgement.revision = revision.empty() ? std::nullopt : std::optional(revision);
  }
  Reason reason;
  if (status == "ok") {
    reason = {"ok", judgement.release.value_or("") + " (" + judgement.revision.value_or("") + ")"};
  } else if (status == "nok") {
    reason = why_no_ndk(dir);
  } else if (status == "notwritable") {
    reason = {"not-writable",
              "an NDK, but you may not write there: run as a user who may, or use a copy"};
  } else if (status == "unsupported") {
    reason = why_unsupported(dir, judgement, supported);
  } else {
    throw std::runtime_error("the plug-in gave no verdict on " + candidate.path);
  }
  judgement.reason = reason.word;
  judgement.message = reason.message;
  return judgement;
}

Json to_json(const Judgement& judgement) {
  return {{"schema", 1},
          {"path", judgement.path},
          {"status", judgement.status},
          {"reason", judgement.reason},
          {"release", optional_text(judgement.release)},
          {"revision", optional_text(judgement.revision)},
          {"message", judgement.message}};
}
