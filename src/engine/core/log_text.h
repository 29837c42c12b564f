// The log of one runtime, shown as it grows. Copies share the text, so that publishing a long log
// costs nothing; the front of a very long one is dropped. Main queue.
#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace vantrell {

class LogText {
 public:
  void append(std::string_view text) {
    if (!buffer_ || buffer_->size() != length_) {
      buffer_ = std::make_shared<std::string>(view());
    } else if (buffer_->size() > 2 * keptBytes) {
      buffer_ = std::make_shared<std::string>(buffer_->substr(buffer_->size() - keptBytes));
    }
    buffer_->append(text);
    length_ = buffer_->size();
  }
  void clear() {
    buffer_.reset();
    length_ = 0;
  }
  std::string_view view() const {
    return buffer_ ? std::string_view(*buffer_).substr(0, length_) : std::string_view();
  }

  /// At least this much of the end is kept.
  static constexpr std::size_t keptBytes = 4 << 20;

 private:
  std::shared_ptr<std::string> buffer_;  // only ever appended to, or replaced
  std::size_t length_ = 0;
};

}  // namespace vantrell
