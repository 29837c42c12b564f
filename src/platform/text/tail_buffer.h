// Keeps the last bytes of a stream that may be endless: never more memory than the limit, and
// constant cost a byte.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace vantrell {

class TailBuffer {
 public:
  explicit TailBuffer(std::size_t limit) : limit_(limit) {}

  void append(std::string_view bytes);
  /// True once bytes have been dropped.
  bool wasTruncated() const { return wasTruncated_; }
  /// What is kept, in order. When bytes were dropped and the cut went through a UTF-8 character,
  /// the rest of that character is left out.
  std::string contents() const;
  std::size_t size() const { return ring_.size(); }

 private:
  std::size_t limit_;
  // Grows to the limit, then is overwritten in a circle from start_.
  std::string ring_;
  std::size_t start_ = 0;
  bool wasTruncated_ = false;
};

}  // namespace vantrell
