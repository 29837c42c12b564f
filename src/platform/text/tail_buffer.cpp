#include "platform/text/tail_buffer.h"

#include <algorithm>

#include "platform/text/utf8.h"

namespace vantrell {

void TailBuffer::append(std::string_view bytes) {
  if (bytes.size() > limit_ - ring_.size()) wasTruncated_ = true;
  if (bytes.size() >= limit_) {
    ring_.assign(bytes.substr(bytes.size() - limit_));
    start_ = 0;
    return;
  }
  const std::size_t room = std::min(bytes.size(), limit_ - ring_.size());
  ring_.append(bytes.substr(0, room));
  bytes.remove_prefix(room);
  while (!bytes.empty()) {
    const std::size_t count = std::min(bytes.size(), limit_ - start_);
    std::copy_n(bytes.data(), count, ring_.data() + start_);
    start_ = (start_ + count) % limit_;
    bytes.remove_prefix(count);
  }
}

std::string TailBuffer::contents() const {
  std::string whole = ring_.substr(start_) + ring_.substr(0, start_);
  if (!wasTruncated_) return whole;
  std::size_t cut = 0;
  // A UTF-8 character has at most three continuation bytes.
  while (cut < 3 && cut < whole.size() && utf8::isContinuation(whole[cut])) {
    ++cut;
  }
  whole.erase(0, cut);
  return whole;
}

}  // namespace vantrell
