// Files that are read and written whole, and are on the disk when a call says so.
#ifndef CONSOLE_HOST_BASE_DURABLE_FILE_H
#define CONSOLE_HOST_BASE_DURABLE_FILE_H

#include <sys/stat.h>

#include <stdexcept>
#include <string>

namespace ndk_integrate {

// A copy that did not get whole onto the disk.
class IncompleteCopy : public std::runtime_error {
 public:
  explicit IncompleteCopy(const std::string& file)
      : std::runtime_error("incomplete copy of " + file + ": is the disk full?") {}
};

// The bytes of `file`. Throws std::runtime_error when it cannot be read.
std::string read_whole_file(const std::string& file);

// Makes or overwrites `file`, which then holds `bytes` and has the permission bits `mode`; it is not
// flushed to the disk. Where it cannot be written whole it throws IncompleteCopy naming `original`,
// what the bytes are a copy of.
void write_file(const std::string& file, const std::string& bytes, mode_t mode,
                const std::string& original);

// Waits until the data of `file`, or the entries of the directory `file`, are on the disk.
void flush_to_disk(const std::string& file);

// Gives `file` the permission bits and, where that is permitted, the owner of `model`. Does nothing
// without a `model`.
void take_over_mode_and_owner(const std::string& file, const std::string& model);

// Gives `file` the owner of `model`, where there is a `model` and that is permitted, and the
// permission bits `mode`.
void take_over_owner(const std::string& file, const std::string& model, mode_t mode);

// Puts `from` in the place of `to`, in one step. The data of `from` has to be on the disk.
void rename_file(const std::string& from, const std::string& to);

// Puts `from` in the place of `to`, in one step; on the disk when it returns. The data of `from`
// has to be there.
void replace_file(const std::string& from, const std::string& to);

// Makes the directory `dir` with the permission bits `mode`, less those that the umask forbids, if it
// is not there; on the disk when it returns.
void make_directory(const std::string& dir, mode_t mode);

// Removes the file `file`; on the disk when it returns. One that is not there is no error.
void remove_file(const std::string& file);

}  // namespace ndk_integrate

#endif
