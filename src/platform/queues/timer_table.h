// The timers of one main queue: which is next, what it runs, how it is cancelled. All three
// implementations of MainQueue use it, so that order, cancellation and skipped periods are one
// rule. Lives on its queue's thread; an implementation only has to wake up in time and call fire().
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <utility>

#include "platform/queues/dispatch.h"

namespace vantrell {

/// The clock of every implementation with real time: monotonic, since some fixed instant. Any
/// thread.
inline Duration steadyUptime() {
  return std::chrono::steady_clock::now().time_since_epoch();
}

class TimerTable {
 public:
  using Clock = std::function<Duration()>;
  /// Asks the queue to call fire() at the given uptime. A later call replaces an earlier one.
  using WakeAt = std::function<void(Duration)>;

  TimerTable(Clock uptime, WakeAt wakeAt);
  ~TimerTable();
  TimerTable(const TimerTable&) = delete;
  TimerTable& operator=(const TimerTable&) = delete;

  Timer after(Duration delay, Work work);
  /// A period below a millisecond counts as one.
  Timer every(Duration period, std::function<void()> work);

  /// Runs the one timer that is due longest, if any; of two due at the same instant, the one set
  /// first. One per call, so that posted work gets its turn between. Waking too early is harmless.
  void fire();
  /// The uptime at which the next timer is due.
  std::optional<Duration> next() const;
  /// Whether one waits that fires once.
  bool hasOneShot() const;

 private:
  /// Due instant, then order of setting.
  using Key = std::pair<Duration, std::uint64_t>;
  struct Entry {
    Key key;
    Duration period{0};  // 0: one-shot
    Work once;
    std::function<void()> repeated;
    bool active = true;
  };
  struct State {
    std::map<Key, std::shared_ptr<Entry>> entries;
  };
  class Handle;

  Timer add(Duration due, const std::shared_ptr<Entry>& entry);
  void insert(Duration due, const std::shared_ptr<Entry>& entry);
  void arm();

  Clock uptime_;
  WakeAt wakeAt_;
  std::optional<Duration> armed_;
  std::uint64_t counter_ = 0;
  std::shared_ptr<State> state_ = std::make_shared<State>();
};

}  // namespace vantrell
