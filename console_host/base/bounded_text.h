// A text of any length, of which only the beginning and the end are kept.
#ifndef CONSOLE_HOST_BASE_BOUNDED_TEXT_H
#define CONSOLE_HOST_BASE_BOUNDED_TEXT_H

#include <cstddef>
#include <string>
#include <string_view>

namespace ndk_integrate {

class BoundedText {
 public:
  // Keeps the first and the last `most` bytes.
  explicit BoundedText(std::size_t most) : most_(most) {}

  void append(std::string_view text);

  // All that is kept, which this object then no longer holds. Where something was left out, a line
  // between beginning and end says how much.
  std::string take();

 private:
  std::size_t most_;
  std::string beginning_;
  std::string end_;            // a ring once it holds `most_` bytes
  std::size_t end_begin_ = 0;  // where in the ring the oldest byte is
  std::size_t left_out_ = 0;   // bytes
};

}  // namespace ndk_integrate

#endif
