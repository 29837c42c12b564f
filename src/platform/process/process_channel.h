// What the two sides of a Process share: the bytes on their way to the child, and the way of its
// events to the handlers' queue, with the back pressure between them. Part of Process; any thread.
#pragma once

#include <array>
#include <atomic>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "platform/process/process_options.h"
#include "platform/queues/dispatch.h"

namespace vantrell {

class ProcessChannel : public std::enable_shared_from_this<ProcessChannel> {
 public:
  enum class Stream { output, error };

  ProcessChannel(SerialQueue queue, ProcessHandlers handlers);

  // The owner's side. Both answer whether the reactor has to be told that there is news.

  bool write(std::string bytes);
  bool closeInput();
  std::size_t unsentBytes() const { return unsent_; }
  /// No handler begins from now on. False when it was stopped before.
  bool stop();
  bool isRunning() const { return running_; }

  // The reactor's side.

  struct Outgoing {
    std::deque<std::string> pieces;
    bool thenClose = false;
  };
  /// Takes what was written since the last time.
  Outgoing takeOutgoing();
  void sent(std::size_t bytes) { unsent_ -= bytes; }
  /// The child takes no more input: drops what is unsent, and reports it if there was any.
  void inputEnded(const ProcessError& error);

  /// False when enough chunks of this stream are on their way; roomAgain is then called, on the
  /// handlers' queue, as soon as one was handled. Always true after stop(): nothing is kept then.
  bool hasRoom(Stream stream);
  std::function<void(Stream)> roomAgain;  // set before the first chunk
  void deliver(Stream stream, std::string bytes);
  /// Reports the exit. Output may still follow unless it is the last event.
  void exited(ExitStatus status, bool isLastEvent);
  /// Lets go of the handlers behind all that was reported.
  void finish();

 private:
  void post(std::function<void(const ProcessHandlers&)> call);
  std::shared_ptr<const ProcessHandlers> liveHandlers() const;
  std::shared_ptr<const ProcessHandlers> releaseHandlers();
  void handled(Stream stream);

  struct Flow {
    int chunksOnTheirWay = 0;
    bool waitsForRoom = false;
  };

  const SerialQueue queue_;
  std::atomic<std::size_t> unsent_ = 0;
  std::atomic<bool> running_ = true;
  mutable std::mutex mutex_;
  std::shared_ptr<const ProcessHandlers> handlers_;  // null: stopped, or nothing more will come
  bool stopped_ = false;
  std::array<Flow, 2> flows_;
  Outgoing outgoing_;
  bool inputClosed_ = false;
};

}  // namespace vantrell
