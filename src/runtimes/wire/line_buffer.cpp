#include "runtimes/wire/line_buffer.h"

namespace vantrell {

namespace {
// Above this the buffer is not kept for the next line.
constexpr std::size_t keptCapacity = 256 * 1024;
}  // namespace

void LineBuffer::consume(std::string_view chunk,
                         const std::function<void(std::string_view)>& onLine) {
  while (true) {
    const std::size_t end = chunk.find('\n');
    if (end == std::string_view::npos) break;
    if (pending_.empty()) {
      if (end > 0) onLine(chunk.substr(0, end));
    } else {
      pending_.append(chunk.substr(0, end));
      onLine(pending_);
      if (pending_.capacity() > keptCapacity) {
        std::string().swap(pending_);  // assigning an empty one would keep the memory
      } else {
        pending_.clear();
      }
    }
    chunk.remove_prefix(end + 1);
  }
  pending_.append(chunk);
}

}  // namespace vantrell
