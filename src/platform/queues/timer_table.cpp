#include "platform/queues/timer_table.h"

namespace vantrell {

namespace {

constexpr Duration shortestPeriod = std::chrono::milliseconds(1);

Duration addSaturating(Duration instant, Duration delay) {
  if (delay <= Duration::zero()) return instant;
  return delay > Duration::max() - instant ? Duration::max() : instant + delay;
}

}  // namespace

/// Does not hold the entry: a timer that outlives its queue must not keep alive what its work
/// holds.
class TimerTable::Handle final : public Timer::Registration {
 public:
  Handle(std::weak_ptr<State> state, std::weak_ptr<Entry> entry)
      : state_(std::move(state)), entry_(std::move(entry)) {}

  ~Handle() override {
    const auto entry = entry_.lock();
    if (!entry) return;
    entry->active = false;
    // The work goes at the end of this function, when the map is consistent again: what it holds
    // may own further timers.
    if (const auto state = state_.lock()) state->entries.erase(entry->key);
  }

  bool isActive() const override {
    const auto entry = entry_.lock();
    return entry && entry->active;
  }

 private:
  std::weak_ptr<State> state_;
  std::weak_ptr<Entry> entry_;
};

TimerTable::TimerTable(Clock uptime, WakeAt wakeAt)
    : uptime_(std::move(uptime)), wakeAt_(std::move(wakeAt)) {}

TimerTable::~TimerTable() {
  // Work that is dropped here may cancel other timers of this table.
  const auto dropped = std::exchange(state_->entries, {});
}

Timer TimerTable::after(Duration delay, Work work) {
  auto entry = std::make_shared<Entry>();
  entry->once = std::move(work);
  return add(addSaturating(uptime_(), delay), entry);
}

Timer TimerTable::every(Duration period, std::function<void()> work) {
  auto entry = std::make_shared<Entry>();
  entry->period = std::max(period, shortestPeriod);
  entry->repeated = std::move(work);
  return add(addSaturating(uptime_(), entry->period), entry);
}

Timer TimerTable::add(Duration due, const std::shared_ptr<Entry>& entry) {
  insert(due, entry);
  return Timer(std::make_unique<Handle>(state_, entry));
}

void TimerTable::insert(Duration due, const std::shared_ptr<Entry>& entry) {
  entry->key = {due, ++counter_};
  state_->entries.emplace(entry->key, entry);
  arm();
}

/// A cancelled timer leaves its alarm set: a watchdog that is set again at every event then
/// costs no system call, and the alarm only wakes up for nothing once.
void TimerTable::arm() {
  const auto due = next();
  if (!due || (armed_ && *armed_ <= *due)) return;
  armed_ = due;
  wakeAt_(*due);
}

std::optional<Duration> TimerTable::next() const {
  if (state_->entries.empty()) return std::nullopt;
  return state_->entries.begin()->first.first;
}

bool TimerTable::hasOneShot() const {
  return std::ranges::any_of(
      state_->entries, [](const auto& each) { return each.second->period == Duration::zero(); });
}

void TimerTable::fire() {
  armed_.reset();
  const auto due = next();
  if (!due) return;
  if (*due > uptime_()) return arm();
  const auto entry = state_->entries.extract(state_->entries.begin()).mapped();
  // Before the work, because that may run an event loop inside this one.
  arm();
  if (entry->period == Duration::zero()) {
    entry->active = false;
    auto work = std::exchange(entry->once, nullptr);
    work();
    return;
  }
  // The work may cancel its own timer and even destroy this table.
  const std::weak_ptr<State> alive = state_;
  entry->repeated();
  if (!entry->active || alive.expired()) return;
  const Duration late = uptime_() - *due;
  insert(*due + entry->period * (late / entry->period + 1), entry);
}

}  // namespace vantrell
