// The manifest: which files an installation changed, what their originals were, and what was put in
// their places. Store (store.h) says how it is used.
#ifndef CONSOLE_HOST_PACKAGE_MANIFEST_H
#define CONSOLE_HOST_PACKAGE_MANIFEST_H

#include <sys/types.h>

#include <map>
#include <optional>
#include <set>
#include <string>

namespace ndk_integrate {

// What is kept of one installation.
struct InstallationRecord {
  std::string version;                 // the compiler's full one
  std::optional<std::string> ndk;      // the NDK's directory; none where integration is disabled
  std::optional<std::string> release;  // the NDK's, such as "r11c"
  std::string component;
  std::string time;          // when it began, in UTC: "2026-11-21T20:09:34Z"
  bool is_finished = false;  // false when it was cut short, or its script failed
};

struct Manifest {
  // Hashes are SHA-256 in hexadecimal.
  struct Entry {
    std::string original;
    mode_t mode = 0;
    std::set<std::string> results;
    std::set<std::string> placeholders;
    std::set<std::string> filled;  // hashes of the lines of results that the original has not
    std::set<std::string> installations;  // the versions; empty where an older program wrote it
  };

  std::map<std::string, InstallationRecord> installations;  // by version
  std::map<std::string, Entry> files;                       // by path, relative to the root
};

// The manifest that is written as `text`. Throws std::exception that says what is wrong when it is
// not one that this program could have written.
Manifest parse_manifest(const std::string& text);

// `manifest` written as text.
std::string text_of(const Manifest& manifest);

// True when `text` is a SHA-256 in hexadecimal.
bool is_hash(const std::string& text);

}  // namespace ndk_integrate

#endif
