// Finds an NDK and judges it.
#include "ndk_utils/ndk_utils.h"

bool is_ndk_dir(const std::string& dir) {
  print_log("NDK_INTEGRATION: is_ndk_dir(): Verifying the following directory: %s", dir.c_str());
  if (file_exists(path(dir + "/ndk-build"), false) == 0 &&
      file_exists(path(dir + "/ndk-build.cmd"), false) == 0) {
    print_log(
        "NDK_INTEGRATION: is_ndk_dir(): could not found files : ndk-build or ndk-build.cmd, returning false");
    return false;
  }
  if (file_exists(path(dir + "/source.properties"), false) == 0) {
    print_log(
        "NDK_INTEGRATION: is_ndk_dir(): could not found file: source.properties, returning false");
    return false;
  }
  print_log("NDK_INTEGRATION: is_ndk_dir(): all required files are in place, returning true");
  return true;
}

int validate_ndk_path(session_t* session) {
  print_log("NDK_INTEGRATION: validate_ndk_path()");
  const std::string ndk_dir = path(env_get_string(session, "NDK_PATH"));
  const std::string supported = env_get_string(session, "NDK_SUPPORTED_VERSIONS");

  const char* status = "ok";
  if (!is_ndk_dir(ndk_dir)) {
    status = "nok";
  } else if (is_writable(ndk_dir) == 0) {
    status = "notwritable";
  } else if (!is_ndk_version_supported(get_version(ndk_dir), supported)) {
    status = "unsupported";
  }
  env_set_string(session, "NDK_PATH_STATUS", status);
  return 0;
}

int detect_ndk(session_t* session) {
  print_log("NDK_INTEGRATION: detect_ndk()");
  const std::string preset = env_get_string(session, "NDK_PATH");
  if (!preset.empty()) {
    print_log("NDK_INTEGRATION: detect_ndk(): NDK_PATH is already set to '%s', exiting",
              preset.c_str());
    return 0;
  }

  const std::string search_path = env_get_string(session, "NDK_DEFAULT_SEARCH_PATH_LINUX");
  for (const std::string& candidate : splitString(search_path, ";", false)) {
    env_set_string(session, "NDK_PATH", candidate);
    validate_ndk_path(session);
    if (env_get_string(session, "NDK_PATH_STATUS") == "ok") {
      print_log("NDK_INTEGRATION: detect_ndk(): found valid NDK: '%s'", candidate.c_str());
      return 0;
    }
    print_log("NDK_INTEGRATION: detect_ndk(): '%s' is not valid NDK path", candidate.c_str());
    env_set_string(session, "NDK_PATH", "");
    // A rejected candidate leaves no failure status behind: hosts take the empty NDK_PATH as the
    // sign that nothing was found.
    env_set_string(session, "NDK_PATH_STATUS", "ok");
  }
  return 0;
}
