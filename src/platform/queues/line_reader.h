// Reads lines from a descriptor on a thread of its own and hands them out on any queue, which needs
// to know nothing of it. An event loop could only read without blocking, and that mode would be
// shared with every other program on the same pipe; nor can it watch a plain file. Owned by the
// queue's thread, and gone before the queue.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/queues/dispatch.h"

namespace vantrell {

class LineReader : public std::enable_shared_from_this<LineReader> {
 public:
  struct Options {
    int descriptor = 0;  // stays the caller's
    /// A line without its line feed. May destroy the reader.
    std::function<void(std::string)> onLine;
    /// Once, at the end of the file or at an error; a last line without a line feed comes before.
    std::function<void()> onEnd;
    /// Whether what is typed is for this program; while it is not, nothing is read. Any thread.
    /// Unset: whether this process is in the foreground of the terminal.
    std::function<bool()> isInForeground;
  };
  /// Reads until the end or until it is destroyed, which waits for nothing.
  [[nodiscard]] static std::shared_ptr<LineReader> begin(Executor& queue, Options options);
  ~LineReader();
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;

  /// Forgets what was typed at the terminal and not delivered yet, so that keys pressed earlier
  /// answer no question.
  void discardPending();

 private:
  struct Shared;
  LineReader(Executor& queue, Options options);
  void deliver(const std::string& bytes, int discards);

  const Options options_;
  const std::shared_ptr<Shared> shared_;  // with the reading thread
  std::string partial_;                   // the queue's
};

}  // namespace vantrell
