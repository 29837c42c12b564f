// Cuts a stream of bytes into lines at line feeds, whatever the chunks are. There is no limit on a
// line's length; the memory of a long one is given back once it has been taken.
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace vantrell {

class LineBuffer {
 public:
  /// Calls the handler with each complete line, without its line feed; empty lines are skipped. The
  /// view is valid during the call. Linear in the bytes, also for a line that comes in many chunks.
  void consume(std::string_view chunk, const std::function<void(std::string_view)>& onLine);
  /// Bytes of the line that has not ended yet.
  std::size_t pendingBytes() const { return pending_.size(); }

 private:
  std::string pending_;
};

}  // namespace vantrell
