#include "console_host/plugin.h"

#include <dlfcn.h>

#include <filesystem>

#include "console_host/errors.h"
#include "ndk_utils/ndk_utils.h"

namespace {

constexpr const char* kLibrary = "libndk_utils.so.1n";

// The names under which compilers export the two functions that are no entry points; std::string is
// part of them.
#ifdef _LIBCPP_VERSION
constexpr const char* kGetVersion =
    "_Z11get_versionRKNSt3__112basic_stringIcNS_11char_traitsIcEENS_9allocatorIcEEEE";
constexpr const char* kNdkVersionString = "_Z18ndk_version_string13ndk_version_t";
#else
constexpr const char* kGetVersion =
    "_Z11get_versionRKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE";
constexpr const char* kNdkVersionString = "_Z18ndk_version_stringB5cxx1113ndk_version_t";
#endif

// Where the library is: `file`, or beside the program, or in ../lib from it, or left to the loader.
std::string find_library(const std::string& file) {
  namespace fs = std::filesystem;
  if (!file.empty()) {
    return fs::absolute(file).string();  // a bare name would be looked for by the loader instead
  }
  const fs::path program_dir = fs::read_symlink("/proc/self/exe").parent_path();
  for (const fs::path& candidate :
       {program_dir / kLibrary, program_dir.parent_path() / "lib" / kLibrary}) {
    std::error_code not_searchable;
    if (fs::exists(candidate, not_searchable)) {
      return candidate.string();
    }
  }
  return kLibrary;
}

}  // namespace

void Plugin::Closer::operator()(void* library) const { dlclose(library); }

Plugin::Plugin(const std::string& file)
    : file_(find_library(file)), library_(dlopen(file_.c_str(), RTLD_NOW | RTLD_LOCAL)) {
  if (!library_) {
    throw PluginError("cannot load the plug-in " + file_ + ": " + dlerror());
  }
  detect_ndk = entry_point("detect_ndk");
  validate_ndk_path = entry_point("validate_ndk_path");
  check_if_ndk_integration_files_are_to_be_installed =
      entry_point("check_if_ndk_integration_files_are_to_be_installed");
  integrate_ndk = entry_point("integrate_ndk");
  unintegrate_ndk = entry_point("unintegrate_ndk");
  get_version_ = symbol("get_version", kGetVersion);
  ndk_version_string_ = symbol("ndk_version_string", kNdkVersionString);
}

void* Plugin::symbol(const char* name, const char* exported_as) const {
  void* found = dlsym(library_.get(), exported_as);
  if (found == nullptr) {
    throw PluginError("cannot use the plug-in " + file_ + ": it has no function " + name);
  }
  return found;
}

Plugin::EntryPoint Plugin::entry_point(const char* name) const {
  return reinterpret_cast<EntryPoint>(symbol(name, name));
}

std::string Plugin::release(const std::string& dir) const {
  const auto get_version = reinterpret_cast<decltype(&::get_version)>(get_version_);
  const auto ndk_version_string =
      reinterpret_cast<decltype(&::ndk_version_string)>(ndk_version_string_);
  return ndk_version_string(get_version(dir));
}
