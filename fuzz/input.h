// The input of a fuzz target, taken byte after byte from its front.
#ifndef FUZZ_INPUT_H
#define FUZZ_INPUT_H

#include <cstddef>
#include <cstdint>
#include <string>

class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : begin_(data), end_(data + size) {}

  bool empty() const { return begin_ == end_; }

  // The next byte; 0 when there is none.
  std::uint8_t byte() {
    const std::uint8_t next = empty() ? std::uint8_t{0} : *begin_;
    begin_ += empty() ? 0 : 1;
    return next;
  }

  // The text before the next "|", which is taken too; all that is left when there is none.
  std::string text() {
    std::string result;
    while (!empty()) {
      const char next = static_cast<char>(byte());
      if (next == '|') {
        break;
      }
      result += next;
    }
    return result;
  }

  std::string rest() {
    std::string result(begin_, end_);
    begin_ = end_;
    return result;
  }

 private:
  const std::uint8_t* begin_;
  const std::uint8_t* end_;
};

#endif
