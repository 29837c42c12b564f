// Carries events from a protocol queue to the main queue: in order, many per hop, and with a bound,
// so that a fast sender is held back by the main queue and does not fill memory.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/queues/dispatch.h"

namespace vantrell {

class Mailbox : public std::enable_shared_from_this<Mailbox> {
 public:
  explicit Mailbox(MainQueue& main) : main_(main) {}

  /// Runs the work on the main queue, after all that was delivered before. `bytes` is what the
  /// event holds in memory, for the bound. Any thread.
  void deliver(Work work, std::size_t bytes = 0);

  /// While one lives, what is delivered waits for its end and then goes over together: events that
  /// belong together arrive with nothing between them, and many cost one hop.
  class Hold {
   public:
    explicit Hold(Mailbox& mailbox);
    ~Hold();
    Hold(const Hold&) = delete;
    Hold& operator=(const Hold&) = delete;

   private:
    Mailbox& mailbox_;
  };

  /// While closed nothing is delivered, not even the rest of a batch at hand; it waits, and counts
  /// for the bound. For a receiver that cannot take more at the moment. Main queue.
  void setOpen(bool open);

  /// The handler is called with true when the undelivered events exceed the bound and with false
  /// when the main queue has caught up. It runs on whichever thread found it out, must not block
  /// and must not call back into the mailbox.
  void whenFullChanges(std::function<void(bool isFull)> handler);

  /// Undelivered bytes at which the mailbox counts as full, and as no longer full.
  static constexpr std::size_t highWater = 1 << 20;
  static constexpr std::size_t lowWater = highWater / 4;

 private:
  struct Event {
    Work work;
    std::size_t bytes;
  };
  void drain();
  /// Makes a change under the lock, and then has the events delivered if they may be.
  template <typename Change>
  void changed(Change change);
  /// Takes the events that may be delivered now.
  std::vector<Event> takeEvents();

  MainQueue& main_;
  std::mutex mutex_;  // guards all below
  std::function<void(bool isFull)> onFullChanged_;
  std::vector<Event> events_;
  std::size_t bytes_ = 0;  // of events_ and of those being drained
  int holds_ = 0;
  std::size_t freeEvents_ = 0;  // while held: how many of events_ were there before
  bool isOpen_ = true;
  bool isScheduled_ = false;
  bool isFull_ = false;
};

}  // namespace vantrell
