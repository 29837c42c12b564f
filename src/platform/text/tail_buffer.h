// Keeps the last bytes of a stream that may be endless, at constant cost a byte.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

namespace vantrell {

class TailBuffer {
 public:
  explicit TailBuffer(std::size_t limit) : limit_(limit) {}

  /// Holds up to twice the limit between two cuts.
  void append(std::string_view bytes) {
    kept_ += bytes.size() > limit_ ? bytes.substr(bytes.size() - limit_) : bytes;
    total_ += bytes.size();
    if (kept_.size() / 2 > limit_) kept_.erase(0, kept_.size() - limit_);
  }
  /// True once bytes have been dropped.
  bool wasTruncated() const { return total_ > limit_; }
  /// What is kept, in order. When bytes were dropped and the cut went through a UTF-8 character,
  /// the rest of that character is left out.
  std::string contents() const;
  std::size_t size() const { return std::min(kept_.size(), limit_); }

 private:
  std::size_t limit_;
  std::size_t total_ = 0;
  std::string kept_;
};

}  // namespace vantrell
