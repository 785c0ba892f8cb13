// A directory that is open. What is below it is reached from there, by descriptors and not by names
// that could lead elsewhere by the next call: no link is followed and nothing outside is reached.
#ifndef CONSOLE_HOST_BASE_DIRECTORY_H
#define CONSOLE_HOST_BASE_DIRECTORY_H

#include <sys/stat.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "console_host/base/file.h"
#include "console_host/base/file_descriptor.h"

namespace ndk_integrate {

// Copies share the descriptor. An `entry` is one name in the directory, without a "/". Every
// function that can fail throws std::runtime_error that names the file.
class Directory {
 public:
  // Opens the directory `name`; links are followed.
  explicit Directory(const std::string& name);

  // Its name, for messages.
  const std::string& name() const { return name_; }
  std::string name_of(const std::string& entry) const { return name_ + "/" + entry; }

  int number() const { return descriptor_->number(); }
  struct stat status() const;

  // A name of it that stays true whatever is renamed; "" where there is no /proc to give one.
  std::string lasting_name() const;

  // Opens the directory `relative`, some names with "/" between them; "" is this one. Nothing where
  // it is missing. A link on the way is an error.
  std::optional<Directory> find_directory(const std::string& relative) const;

  // What `entry` is, links not followed. Nothing where it is missing.
  std::optional<struct stat> status_of(const std::string& entry) const;

  // Opens the ordinary file `entry` for reading. Nothing where it is missing. Throws
  // NotOrdinaryFile where it is something else.
  std::optional<File> find_file(const std::string& entry) const;

  // Makes the file `entry`, which must not be there, for its owner only, and opens it for reading
  // and writing. Throws IncompleteCopy naming `original`, what it is to be a copy of, on a full
  // disk.
  File make_file(const std::string& entry, const std::string& original) const;

  // Makes the directory `entry`, for its owner only; on the disk when it returns. False where there
  // is something of that name.
  bool make_directory(const std::string& entry) const;

  // Removes a file, a link or the like; whether it was there.
  bool remove_file(const std::string& entry) const;

  // Removes the directory `entry`. False where it is missing or not empty.
  bool remove_directory(const std::string& entry) const;

  // Puts `entry` in the place of `new_entry` in `to`, in one step.
  void rename(const std::string& entry, const Directory& to, const std::string& new_entry) const;

  // Lets `entry` and `other_entry` of `other` change their places, in one step.
  enum class Exchange { kDone, kMissing, kNotPossible };
  Exchange exchange(const std::string& entry, const Directory& other,
                    const std::string& other_entry) const;

  // Moves `entry` to `new_entry` in `to`, in one step. False where something is there.
  bool move_unless_taken(const std::string& entry, const Directory& to,
                         const std::string& new_entry) const;

  // The names in it, without "." and "..".
  std::vector<std::string> entries() const;

  // Why the effective user may not make files in it, as an errno; 0 when files can be made.
  int why_not_writable() const;

  // Waits until its entries are on the disk.
  void flush() const;

 private:
  Directory(FileDescriptor descriptor, std::string name);

  bool move_where_renaming_cannot_refuse(const std::string& entry, const Directory& to,
                                         const std::string& new_entry) const;

  std::shared_ptr<const FileDescriptor> descriptor_;
  std::string name_;
};

}  // namespace ndk_integrate

#endif
