#include "host_check/scratch.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

#include "host_check/verdict.h"

namespace fs = std::filesystem;

namespace host_check {

namespace {

Skipped cannot(const std::string& what) { return Skipped{what + ": " + std::strerror(errno)}; }

}  // namespace

ScratchDirectory::ScratchDirectory() {
  const char* tmpdir = std::getenv("TMPDIR");
  const fs::path parent = tmpdir == nullptr || *tmpdir == '\0' ? "/tmp" : tmpdir;
  std::error_code failure;  // Absolute, because checks change the working directory.
  name_ = (fs::absolute(parent, failure) / "host_check.XXXXXX").string();
  if (mkdtemp(name_.data()) == nullptr) {
    throw cannot("cannot make a temporary directory in " + parent.string());
  }
}

ScratchDirectory::~ScratchDirectory() {
  std::error_code ignored;
  fs::remove_all(name_, ignored);
}

std::string ScratchDirectory::make_directory(const std::string& name) const {
  std::string directory = name_ + name;
  if (mkdir(directory.c_str(), 0700) != 0) {
    throw cannot("cannot make the directory " + directory);
  }
  return directory;
}

Stay::Stay(const std::string& directory) : before_(open(".", O_PATH | O_DIRECTORY | O_CLOEXEC)) {
  if (before_ < 0) {
    throw cannot("cannot remember the working directory");
  }
  if (chdir(directory.c_str()) != 0) {
    const int reason = errno;
    close(before_);
    errno = reason;
    throw cannot("cannot go to the directory " + directory);
  }
}

Stay::~Stay() {
  [[maybe_unused]] const int ignored = fchdir(before_);
  close(before_);
}

void write_file(const std::string& file, const std::string& content) {
  std::ofstream out(file, std::ios::binary);
  out << content << std::flush;
  if (!out) {
    throw cannot("cannot write the file " + file);
  }
}

std::string read_file(const std::string& file) {
  std::ostringstream content;
  content << std::ifstream(file, std::ios::binary).rdbuf();
  return content.str();
}

bool is_there(const std::string& name) { return access(name.c_str(), F_OK) == 0; }

}  // namespace host_check
