// An ordinary file that is open: it is read, written, judged and changed by its descriptor, so it
// stays the same file whatever becomes of its name.
#ifndef CONSOLE_HOST_BASE_FILE_H
#define CONSOLE_HOST_BASE_FILE_H

#include <sys/stat.h>

#include <stdexcept>
#include <string>

#include "console_host/base/file_descriptor.h"

namespace ndk_integrate {

// What a mode says beside the kind of file: who may do what, and whether it runs as its owner.
constexpr mode_t kModeBits = 07777;

// A copy that did not get whole onto the disk.
class IncompleteCopy : public std::runtime_error {
 public:
  explicit IncompleteCopy(const std::string& file)
      : std::runtime_error("incomplete copy of " + file + ": is the disk full?") {}
};

// A name that leads to something that has no bytes of its own: a pipe, a socket, a device, a
// directory, or a link where none is followed.
class NotOrdinaryFile : public std::runtime_error {
 public:
  NotOrdinaryFile(const std::string& name, bool is_link)
      : std::runtime_error(name + (is_link ? " is a link" : " is not an ordinary file")),
        is_link_(is_link) {}
  bool is_link() const { return is_link_; }

 private:
  bool is_link_;
};

// Every function that can fail throws std::runtime_error that names the file.
class File {
 public:
  // Takes `descriptor`, which is open, as the file `name`. Throws NotOrdinaryFile where it is
  // something else.
  File(FileDescriptor descriptor, std::string name);

  const std::string& name() const { return name_; }
  int number() const { return descriptor_.number(); }
  struct stat status() const;

  // All its bytes.
  std::string read() const;

  // Writes `bytes` to the file, which is empty and open for writing. Throws IncompleteCopy naming
  // `original`, what the bytes are a copy of, where that does not succeed.
  void write(const std::string& bytes, const std::string& original) const;

  // True when some process has it open for writing, as far as the system tells the caller; the file
  // must be open for reading only.
  bool is_being_written() const;

  void set_mode(mode_t mode) const;
  void set_owner(uid_t user, gid_t group) const;

  // The same, where that is permitted; whether it was. Only root may give a file away, but its
  // group may be another of the user's own.
  bool set_owner_where_permitted(uid_t user, gid_t group) const;

  // Gives it the access control list and the extended attributes of `model`: that list and the
  // user's attributes are then the same, others are taken over where that is permitted. Call
  // set_mode() after it, because a list has a part in the mode.
  void take_over_attributes(const File& model) const;

  // Waits until its data are on the disk.
  void flush() const;

 private:
  FileDescriptor descriptor_;
  std::string name_;
};

// Opens the ordinary file `name` for reading; links are followed. Throws NotOrdinaryFile where it
// is something else, without waiting for what may never come.
File open_file(const std::string& name);

// The bytes of the ordinary file `name`.
std::string read_whole_file(const std::string& name);

}  // namespace ndk_integrate

#endif
