// Cuts a stream of bytes into lines at line feeds, whatever the chunks are. The memory of a long
// line is given back once it has been taken.
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
  /// What a sender without line feeds may make us hold.
  static constexpr std::size_t longestLine = 256 << 20;

 private:
  std::string pending_;
};

}  // namespace vantrell
