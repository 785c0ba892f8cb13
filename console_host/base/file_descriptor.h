// A file descriptor that closes itself.
#ifndef CONSOLE_HOST_BASE_FILE_DESCRIPTOR_H
#define CONSOLE_HOST_BASE_FILE_DESCRIPTOR_H

#include <unistd.h>

#include <utility>

namespace ndk_integrate {

class FileDescriptor {
 public:
  explicit FileDescriptor(int number) : number_(number) {}
  ~FileDescriptor() { close(); }
  FileDescriptor(FileDescriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }

  bool is_open() const { return number_ >= 0; }
  int number() const { return number_; }
  // Gives the descriptor away: whoever calls closes it.
  int release() { return std::exchange(number_, -1); }
  void close() {
    if (is_open()) {
      ::close(std::exchange(number_, -1));
    }
  }

 private:
  int number_;
};

}  // namespace ndk_integrate

#endif
