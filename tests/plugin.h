// The plug-in under test: linked in, or, where NDK_UTILS_LIBRARY names it, the shared library
// itself, loaded as a host loads it.
#ifndef TESTS_PLUGIN_H
#define TESTS_PLUGIN_H

#include "ndk_utils/ndk_utils.h"

#ifdef NDK_UTILS_LIBRARY
#include <dlfcn.h>

#include <stdexcept>
#include <string>
#endif

struct Plugin {
  int (*detect_ndk)(session_t*);
  int (*validate_ndk_path)(session_t*);
  int (*check_if_ndk_integration_files_are_to_be_installed)(session_t*);
  int (*integrate_ndk)(session_t*);
  int (*unintegrate_ndk)(session_t*);
};

#ifdef NDK_UTILS_LIBRARY

inline Plugin plugin() {
  void* library = dlopen(NDK_UTILS_LIBRARY, RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    throw std::runtime_error(std::string("cannot load the plug-in: ") + dlerror());
  }
  const auto entry_point = [library](const char* name) {
    void* address = dlsym(library, name);
    if (address == nullptr) {
      throw std::runtime_error(std::string("the plug-in has no entry point ") + name);
    }
    return reinterpret_cast<int (*)(session_t*)>(address);
  };
  return {entry_point("detect_ndk"), entry_point("validate_ndk_path"),
          entry_point("check_if_ndk_integration_files_are_to_be_installed"),
          entry_point("integrate_ndk"), entry_point("unintegrate_ndk")};
}

#else

inline Plugin plugin() {
  return {detect_ndk, validate_ndk_path, check_if_ndk_integration_files_are_to_be_installed,
          integrate_ndk, unintegrate_ndk};
}

#endif
#endif
