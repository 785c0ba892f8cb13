// Decides, from the components that the user selected, whether the integration files are to be
// installed.
#include <vector>

#include "ndk_utils/ndk_utils.h"

// The first of `patterns` that occurs in `id`, or null.
static const std::string* find_pattern(const std::vector<std::string>& patterns,
                                       const std::string& id) {
  for (const std::string& pattern : patterns) {
    if (id.find(pattern) != std::string::npos) {
      return &pattern;
    }
  }
  return nullptr;
}

// `number` + 2000, wrapping as 32-bit numbers do.
static std::int32_t add_2000(std::int32_t number) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(number) + 2000U);
}

// Records the version of the compiler's libraries: the compiler 5.0.3 with the package number 42
// gives 2005.3.42.
static void record_cnl_version(session_t* session, const Component& compiler) {
  const std::vector<std::string> numbers = splitString(compiler.version, ".", false);
  if (numbers.size() != 3) {
    print_log(
        "NDK_INTEGRATION: check_if_ndk_integration_files_are_to_be_installed(): compiler version is in unexpected format, could not convert it to CnL version!");
    return;
  }
  const std::int32_t major = add_2000(strtoint(numbers[0]));
  // The library version's second number is the compiler version's third; its second is not used.
  const std::int32_t minor = strtoint(numbers[2]);
  std::string full = inttostr(major) + ".";
  full += inttostr(minor) + "." + compiler.packageNumber;
  const std::string major_alone = inttostr(major);
  env_set_string(session, "NDK_CNL_VERSION_FULL", full);
  env_set_string(session, "NDK_CNL_VERSION_MAJOR", major_alone);
}

// Records what is known of the compiler before its version is looked at, so a bad version leaves
// these values set.
static void record_compiler(session_t* session, Component& compiler) {
  env_set_string(session, "NDK_INTEGRATION_INSTALL_DETECTED", "yes");
  env_set_string(session, "NDK_COMPILER_VERSION", compiler.version);
  env_set_string(session, "NDK_COMPILER_PACKAGE_NUMBER", compiler.packageNumber);
  env_set_string(session, "NDK_COMPILER_SUBDIR", compiler.subdir());
  record_cnl_version(session, compiler);
}

int check_if_ndk_integration_files_are_to_be_installed(session_t* session) {
  print_log("NDK_INTEGRATION: check_if_ndk_integration_files_are_to_be_installed()");
  env_set_string(session, "NDK_INTEGRATION_INSTALL_DETECTED", "no");
  const std::vector<std::string> patterns =
      splitString(env_get_string(session, "NDK_COMPONENT_PATTERNS"), ";", false);
  for (Component* component : session->tsd.components()) {
    if (!component->installCondition() || !component->getSelected()) {
      continue;
    }
    const std::string* pattern = find_pattern(patterns, component->id);
    if (pattern == nullptr) {
      continue;
    }
    print_log(
        "NDK_INTEGRATION: check_if_ndk_integration_files_are_to_be_installed(): Found pattern '%s' in '%s'",
        pattern->c_str(), component->id.c_str());
    record_compiler(session, *component);
    return 0;
  }
  return 0;
}
