// Real files for tests, and the working directory kept.
#ifndef TESTS_TEMPORARY_DIRECTORY_H
#define TESTS_TEMPORARY_DIRECTORY_H

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

#include "tests/texts.h"

// A directory that is made with the object and removed with it, with everything in it.
class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    std::string name = std::filesystem::temp_directory_path() / "ndk_utils_test.XXXXXX";
    if (mkdtemp(name.data()) == nullptr) {
      throw std::runtime_error("cannot make a temporary directory named like " + name);
    }
    path_ = std::filesystem::canonical(name);
  }
  ~TemporaryDirectory() { std::filesystem::remove_all(path_); }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  const std::string& path() const { return path_; }

  // Makes the file `name` (which begins with "/") in this directory, and the directories above it.
  void write(const std::string& name, const std::string& content) const {
    const std::filesystem::path file = path_ + name;
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << content;
  }

  std::string read(const std::string& name) const { return content_of(path_ + name); }

  bool holds(const std::string& name) const { return std::filesystem::exists(path_ + name); }

  // `text` with this directory's name, which differs from run to run, replaced by "DIR".
  std::string hidden_in(const std::string& text) const { return replaced(text, path_, "DIR"); }

 private:
  std::string path_;
};

// Brings the working directory back in the end.
class WorkingDirectoryKept {
 public:
  WorkingDirectoryKept() : directory_(open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    if (directory_ < 0) {
      throw std::runtime_error("cannot open the working directory");
    }
  }
  // By fchdir, because chdir is what the recording host writes down.
  ~WorkingDirectoryKept() {
    [[maybe_unused]] const int ignored = fchdir(directory_);
    close(directory_);
  }
  WorkingDirectoryKept(const WorkingDirectoryKept&) = delete;
  WorkingDirectoryKept& operator=(const WorkingDirectoryKept&) = delete;

 private:
  int directory_;
};

#endif
