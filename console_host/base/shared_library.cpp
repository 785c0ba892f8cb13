#include "console_host/base/shared_library.h"

#include <dlfcn.h>

#include <filesystem>
#include <utility>

#include "console_host/base/errors.h"

namespace ndk_integrate {

std::string find_library(const std::string& name, const std::string& file) {
  namespace fs = std::filesystem;
  if (!file.empty()) {
    return fs::absolute(file).string();  // a bare name would be looked for by the loader instead
  }
  std::error_code no_proc;
  const fs::path program_dir = fs::read_symlink("/proc/self/exe", no_proc).parent_path();
  if (no_proc) {
    return name;
  }
  for (const fs::path& candidate : {program_dir / name, program_dir.parent_path() / "lib" / name}) {
    std::error_code not_searchable;
    if (fs::exists(candidate, not_searchable)) {
      return candidate.string();
    }
  }
  return name;
}

void Library::Closer::operator()(void* library) const { dlclose(library); }

Library::Library(std::string what, const std::string& name, const std::string& file)
    : what_(std::move(what)),
      file_(find_library(name, file)),
      library_(dlopen(file_.c_str(), RTLD_NOW | RTLD_LOCAL)) {
  if (!library_) {
    throw PluginError("cannot load " + what_ + " " + file_ + ": " + dlerror());
  }
}

void* Library::function(const char* name, const char* exported_as) const {
  void* found = dlsym(library_.get(), exported_as);
  if (found == nullptr) {
    throw PluginError("cannot use " + what_ + " " + file_ + ": it has no function " + name);
  }
  return found;
}

}  // namespace ndk_integrate
