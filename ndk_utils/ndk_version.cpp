// NDK releases: reading one from an NDK, its text form, and the test against a list of supported
// ones.
#include <algorithm>
#include <vector>

#include "ndk_utils/ndk_utils.h"

ndk_version_t get_version(const std::string& ndk_dir) {
  ndk_version_t version{-1, -1};
  if (file_exists(path(ndk_dir + "/source.properties"), false) == 0) {
    print_log(
        "NDK_INTEGRATION: get_version(): ERROR! Could not find source.properties file in '%s'",
        ndk_dir.c_str());
    return version;
  }

  IniDb properties(ndk_dir, "source.properties", "=");
  // The NDK writes a blank before "=", and a host may compare keys untrimmed: the blank is part of
  // the key.
  const std::string revision = properties.value("Pkg.Revision ");
  print_log("NDK_INTEGRATION: get_version(): detected full revision: '%s'", revision.c_str());

  const std::vector<std::string> numbers = splitString(revision, ".", false);
  if (numbers.size() < 2) {
    print_log(
        "NDK_INTEGRATION: get_version(): ERROR! source.properties contains version in unknown format");
    return version;
  }
  version.major = strtoint(numbers[0]);
  version.minor = strtoint(numbers[1]);
  // The doubled quote at the end is part of the text that log readers search for.
  print_log("NDK_INTEGRATION: get_version(): detected version is '%s''",
            ndk_version_string(version).c_str());
  return version;
}

std::string ndk_version_string(ndk_version_t version) {
  std::string text = "r" + inttostr(version.major);
  // The first issue of a release has no letter, and its first update is "b": there is no "a".
  if (version.minor >= 1) {
    const auto code = static_cast<std::uint32_t>(version.minor) + std::uint32_t{'a'};
    text += static_cast<char>(static_cast<unsigned char>(code));
  }
  return text;
}

bool is_ndk_version_supported(ndk_version_t version, const std::string& supported) {
  const std::vector<std::string> entries = splitString(supported, ";", false);
  const std::string release = ndk_version_string(version);
  const bool found = std::find(entries.begin(), entries.end(), release) != entries.end();
  // The text is formed anew for the log line: a host sees inttostr called twice for each check.
  const std::string logged = ndk_version_string(version);
  if (!found) {
    print_log(
        "NDK_INTEGRATION: is_ndk_version_supported(): '%s' version is not supported, supported versions are '%s'. Returning false",
        logged.c_str(), supported.c_str());
    return false;
  }
  print_log("NDK_INTEGRATION: is_ndk_version_supported(): '%s' version is supported",
            logged.c_str());
  return true;
}
