// Writes to a descriptor on a thread of its own, in order, so that a slow reader does not hold the
// caller up. All operations are called on the main queue.
#pragma once

#include <functional>
#include <memory>
#include <string_view>

namespace vantrell {

class MainQueue;

class OutputSink {
 public:
  /// The descriptor stays the caller's. While `mayWrite` is false nothing is written; it is asked
  /// on the sink's thread, before each piece.
  OutputSink(MainQueue& main, int descriptor, std::function<bool()> mayWrite = {});
  /// Drops what has not been written: whenWritten() says when that is nothing. Never waits.
  ~OutputSink();
  OutputSink(const OutputSink&) = delete;
  OutputSink& operator=(const OutputSink&) = delete;

  /// Called once, on the main queue, when the descriptor takes no more: its reader is gone, or the
  /// disk is full.
  std::function<void()> onBroken;

  /// Called on the main queue with true when more than `bound` bytes wait for the reader (within
  /// write()), and with false when he has caught up. Whoever writes should hold back meanwhile.
  std::function<void(bool isFull)> onFullChanged;

  /// Never waits.
  void write(std::string_view bytes);
  /// Calls back on the main queue once everything is written, or nothing more can be. Not called
  /// once the sink is gone.
  void whenWritten(std::function<void()> then);
  /// The errno of the write that failed (EPIPE: the reader is gone), or 0.
  int error() const;

  static constexpr std::size_t bound = 1 << 20;  // bytes

 private:
  struct Impl;
  const std::shared_ptr<Impl> impl_;
};

}  // namespace vantrell
