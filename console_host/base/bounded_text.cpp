#include "console_host/base/bounded_text.h"

#include <algorithm>

namespace ndk_integrate {

void BoundedText::append(std::string_view text) {
  const std::size_t fits = std::min(text.size(), most_ - beginning_.size());
  beginning_.append(text.substr(0, fits));
  text.remove_prefix(fits);
  if (text.size() > most_) {
    left_out_ += text.size() - most_;
    text.remove_prefix(text.size() - most_);
  }
  const std::size_t added = std::min(text.size(), most_ - end_.size());
  end_.append(text.substr(0, added));
  text.remove_prefix(added);
  left_out_ += text.size();  // as many of the oldest make room
  while (!text.empty()) {
    const std::size_t size = std::min(text.size(), most_ - end_begin_);
    end_.replace(end_begin_, size, text.substr(0, size));
    end_begin_ = (end_begin_ + size) % most_;
    text.remove_prefix(size);
  }
}

std::string BoundedText::take() {
  std::string text = std::move(beginning_);
  if (left_out_ > 0) {
    const bool ends_line = !text.empty() && text.back() == '\n';
    text += (ends_line ? "[" : "\n[") + std::to_string(left_out_) + " bytes are left out here]\n";
  }
  text.reserve(text.size() + end_.size());
  text.append(end_, end_begin_, std::string::npos);
  text.append(end_, 0, end_begin_);
  *this = BoundedText(most_);
  return text;
}

}  // namespace ndk_integrate
