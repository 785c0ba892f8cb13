#include "console_host/base/temporary_directory.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include "console_host/base/errors.h"
#include "console_host/base/paths.h"
#include "console_host/base/system_call.h"

namespace ndk_integrate {

std::string directory_for_temporary_files() {
  // Once, because the working directory changes during an installation.
  static const std::string dir = [] {
    const char* name = std::getenv("TMPDIR");
    return name == nullptr || *name == '\0' ? "/tmp" : absolute_path(working_directory(), name);
  }();
  return dir;
}

TemporaryDirectory::TemporaryDirectory(const std::string& parent)
    : name_(parent + "/ndk-integrate-XXXXXX") {
  const NoUmask as_asked;
  if (mkdtemp(name_.data()) == nullptr) {
    throw std::runtime_error("cannot make a temporary directory in " + parent + ": " +
                             system_error_text(errno));
  }
}

TemporaryDirectory::~TemporaryDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(name_, ignored);
}

}  // namespace ndk_integrate
