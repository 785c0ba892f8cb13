// The plug-in as a host sees it: a library to load, and entry points to look up by name.
#ifndef CONSOLE_HOST_NDK_PLUGIN_H
#define CONSOLE_HOST_NDK_PLUGIN_H

#include <string>

#include "console_host/base/shared_library.h"

struct session_t;

namespace ndk_integrate {

class Plugin {
 public:
  using EntryPoint = int (*)(session_t*);

  // Loads the library `file`; with "" the one beside the program, else in ../lib from it, else
  // where the loader finds it. Throws PluginError when that fails or something is missing from it.
  explicit Plugin(const std::string& file);

  EntryPoint detect_ndk;
  EntryPoint validate_ndk_path;
  EntryPoint check_if_ndk_integration_files_are_to_be_installed;
  EntryPoint integrate_ndk;
  EntryPoint unintegrate_ndk;

  // The text of the release that the plug-in reads from the NDK in `dir`, such as "r21e"; "r-1"
  // when it reads none. The plug-in logs that it does so.
  std::string release(const std::string& dir) const;

  // The directories and the version of the compiler that is recorded in the session; the plug-in
  // asks for variables and for paths.
  std::string toolchains_path(session_t* session) const;
  std::string compiler_path(session_t* session) const;
  std::string compiler_full_version(session_t* session) const;

 private:
  EntryPoint entry_point(const char* name) const;

  Library library_;
  void* get_version_;
  void* ndk_version_string_;
  void* get_toolchains_path_;
  void* get_compiler_path_;
  void* get_compiler_full_version_;
};

}  // namespace ndk_integrate

#endif
