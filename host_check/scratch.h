// Files and directories that a check makes for itself, and its stay in one of them.
#ifndef HOST_CHECK_SCRATCH_H
#define HOST_CHECK_SCRATCH_H

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace host_check {

// A directory in TMPDIR (or /tmp) that goes with the object, with everything in it. What cannot be
// made there is a reason to skip the check, not the host's fault.
class ScratchDirectory {
 public:
  ScratchDirectory();
  ~ScratchDirectory();
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;

  const std::string& name() const { return name_; }

  // Makes the directory `name`, which begins with "/", in this one. Returns its whole name.
  std::string make_directory(const std::string& name) const;

 private:
  std::string name_;
};

// Names of directories that cannot be looked at: a link that leads to itself, and, unless for root,
// who may enter every one, a directory that may not be entered.
class UnreadableDirectories {
 public:
  UnreadableDirectories();
  ~UnreadableDirectories();
  UnreadableDirectories(const UnreadableDirectories&) = delete;
  UnreadableDirectories& operator=(const UnreadableDirectories&) = delete;

  const std::vector<std::string>& names() const { return names_; }

 private:
  ScratchDirectory scratch_;
  std::string closed_;
  std::vector<std::string> names_;
};

// What is read from standard input is `text` as long as the object lives.
class StandardInput {
 public:
  explicit StandardInput(const std::string& text);
  ~StandardInput();
  StandardInput(const StandardInput&) = delete;
  StandardInput& operator=(const StandardInput&) = delete;

 private:
  int before_;
};

// What `call` gives when it runs in a process of its own, which a second's work ends; nothing where
// it came to no end. Throws std::runtime_error, with the same text, where it threw.
std::optional<std::string> in_one_second(const std::function<std::string()>& call);

// The working directory of the process is `directory` as long as the object lives.
class Stay {
 public:
  explicit Stay(const std::string& directory);
  ~Stay();
  Stay(const Stay&) = delete;
  Stay& operator=(const Stay&) = delete;

 private:
  int before_;
};

void write_file(const std::string& file, const std::string& content);

// What `file` holds; "" when it cannot be read.
std::string read_file(const std::string& file);

// Whether there is anything of that name.
bool is_there(const std::string& name);

}  // namespace host_check

#endif
