// Queues. All application state belongs to the main queue; everything that waits or computes for
// long runs on a SerialQueue or the BackgroundPool and comes back by post().
//
// Time comes from the main queue too, so that a test can walk through ten minutes of silence in a
// microsecond (manual_main_queue.h).
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "platform/values/date.h"

namespace vantrell {

/// One piece of work for a queue. It runs once and must not throw.
using Work = std::move_only_function<void()>;
using Duration = std::chrono::nanoseconds;

/// Anything that runs posted work in order. post() may be called from any thread.
class Executor {
 public:
  virtual ~Executor() = default;
  virtual void post(Work work) = 0;
};

/// Owns a timer: destroying or cancelling it guarantees that the work does not run afterwards.
/// Created, cancelled and destroyed on the main queue only.
class Timer {
 public:
  /// The queue's side of a Timer.
  class Registration {
   public:
    virtual ~Registration() = default;  // cancels
    virtual bool isActive() const = 0;
  };

  Timer() = default;
  explicit Timer(std::unique_ptr<Registration> registration)
      : registration_(std::move(registration)) {}

  void cancel() { registration_.reset(); }
  /// True until it fired (a one-shot timer) or was cancelled.
  bool isActive() const { return registration_ && registration_->isActive(); }

 private:
  std::unique_ptr<Registration> registration_;
};

/// The queue of the thread that owns application state. Three
/// implementations: RunLoop (terminal and headless), ManualMainQueue (tests, virtual time) and the
/// window's event loop.
class MainQueue : public Executor {
 public:
  /// Wall-clock time.
  virtual Date now() const = 0;
  /// Monotonic time since some fixed instant; never jumps when the clock is set.
  virtual Duration uptime() const = 0;
  /// Runs the work once, `delay` from now. Main queue only, as is every().
  [[nodiscard]] virtual Timer after(Duration delay, Work work) = 0;
  /// Runs the work every `period`, the first time one period from now. A period that was missed is
  /// skipped, not made up for.
  [[nodiscard]] virtual Timer every(Duration period, std::function<void()> work) = 0;
};

/// Threads for work that may block: processes, git, files. Destroying it finishes what was posted.
class BackgroundPool final : public Executor {
 public:
  /// 0 threads means a number that suits the machine.
  explicit BackgroundPool(unsigned threads = 0);
  ~BackgroundPool() override;
  BackgroundPool(const BackgroundPool&) = delete;
  BackgroundPool& operator=(const BackgroundPool&) = delete;
  void post(Work work) override;
  /// All that was posted has run.
  bool isIdle() const;

 private:
  friend class SerialQueue;
  struct Impl;
  std::shared_ptr<Impl> impl_;
};

/// A queue that runs its work one piece at a time, in order, on threads of a pool. A value: copies
/// are the same queue. Work posted after its pool is gone is dropped.
class SerialQueue {
 public:
  SerialQueue(BackgroundPool& pool, std::string label);
  void post(Work work) const;
  const std::string& label() const;

 private:
  struct Impl;
  std::shared_ptr<Impl> impl_;
};

}  // namespace vantrell
