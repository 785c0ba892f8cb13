#include "console_host/ndk/plugin.h"

#include "ndk_utils/ndk_utils.h"

namespace ndk_integrate {

namespace {

// The names under which compilers export the functions that are not entry points; std::string is
// part of them.
#ifdef _LIBCPP_VERSION
constexpr const char* kGetVersion =
    "_Z11get_versionRKNSt3__112basic_stringIcNS_11char_traitsIcEENS_9allocatorIcEEEE";
constexpr const char* kNdkVersionString = "_Z18ndk_version_string13ndk_version_t";
constexpr const char* kGetToolchainsPath = "_Z19get_toolchains_pathP9session_t";
constexpr const char* kGetCompilerPath = "_Z17get_compiler_pathP9session_t";
constexpr const char* kGetCompilerFullVersion = "_Z25get_compiler_full_versionP9session_t";
#else
constexpr const char* kGetVersion =
    "_Z11get_versionRKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE";
constexpr const char* kNdkVersionString = "_Z18ndk_version_stringB5cxx1113ndk_version_t";
constexpr const char* kGetToolchainsPath = "_Z19get_toolchains_pathB5cxx11P9session_t";
constexpr const char* kGetCompilerPath = "_Z17get_compiler_pathB5cxx11P9session_t";
constexpr const char* kGetCompilerFullVersion = "_Z25get_compiler_full_versionB5cxx11P9session_t";
#endif

}  // namespace

Plugin::Plugin(const std::string& file) : library_("the plug-in", "libndk_utils.so.1n", file) {
  detect_ndk = entry_point("detect_ndk");
  validate_ndk_path = entry_point("validate_ndk_path");
  check_if_ndk_integration_files_are_to_be_installed =
      entry_point("check_if_ndk_integration_files_are_to_be_installed");
  integrate_ndk = entry_point("integrate_ndk");
  unintegrate_ndk = entry_point("unintegrate_ndk");
  get_version_ = library_.function("get_version", kGetVersion);
  ndk_version_string_ = library_.function("ndk_version_string", kNdkVersionString);
  get_toolchains_path_ = library_.function("get_toolchains_path", kGetToolchainsPath);
  get_compiler_path_ = library_.function("get_compiler_path", kGetCompilerPath);
  get_compiler_full_version_ =
      library_.function("get_compiler_full_version", kGetCompilerFullVersion);
}

Plugin::EntryPoint Plugin::entry_point(const char* name) const {
  return reinterpret_cast<EntryPoint>(library_.function(name, name));
}

std::string Plugin::release(const std::string& dir) const {
  const auto get_version = reinterpret_cast<decltype(&::get_version)>(get_version_);
  const auto ndk_version_string =
      reinterpret_cast<decltype(&::ndk_version_string)>(ndk_version_string_);
  return ndk_version_string(get_version(dir));
}

std::string Plugin::toolchains_path(session_t* session) const {
  return reinterpret_cast<decltype(&::get_toolchains_path)>(get_toolchains_path_)(session);
}

std::string Plugin::compiler_path(session_t* session) const {
  return reinterpret_cast<decltype(&::get_compiler_path)>(get_compiler_path_)(session);
}

std::string Plugin::compiler_full_version(session_t* session) const {
  return reinterpret_cast<decltype(&::get_compiler_full_version)>(get_compiler_full_version_)(
      session);
}

}  // namespace ndk_integrate
