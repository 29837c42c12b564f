#include "platform/queues/manual_main_queue.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>

#include "platform/queues/timer_table.h"

namespace vantrell {

struct ManualMainQueue::Impl {
  explicit Impl(Date at) : start(at) {}

  ~Impl() {
    // Work that is dropped may post again from its destructor.
    for (auto work = take(); work; work = take()) work.reset();
  }

  std::optional<Work> take() {
    const std::lock_guard lock(mutex);
    if (ready.empty()) return std::nullopt;
    std::optional<Work> work(std::move(ready.front()));
    ready.pop_front();
    return work;
  }

  bool runOne() {
    auto work = take();
    if (!work) return false;
    (*work)();
    return true;
  }

  const Date start;
  std::atomic<Duration> passed{Duration::zero()};
  std::mutex mutex;
  std::condition_variable posted;
  std::deque<Work> ready;
  // Goes first, because what its work holds may still post.
  TimerTable timers{[this] { return passed.load(); }, [](Duration) {}};
};

ManualMainQueue::ManualMainQueue(Date start) : impl_(std::make_unique<Impl>(start)) {}
ManualMainQueue::~ManualMainQueue() = default;

void ManualMainQueue::runReady() {
  while (impl_->runOne()) {
  }
}

void ManualMainQueue::advance(Duration by) {
  const Duration target = uptime() + by;
  runReady();
  for (auto due = impl_->timers.next(); due && *due <= target; due = impl_->timers.next()) {
    impl_->passed = std::max(uptime(), *due);
    impl_->timers.fire();
    runReady();
  }
  impl_->passed = std::max(uptime(), target);
}

bool ManualMainQueue::runUntil(const std::function<bool()>& condition, Duration limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (impl_->runOne()) continue;
    std::unique_lock lock(impl_->mutex);
    if (!impl_->posted.wait_until(lock, deadline, [this] { return !impl_->ready.empty(); })) {
      return false;
    }
  }
  return true;
}

void ManualMainQueue::post(Work work) {
  // Notified under the lock: the poster may be the last thing to touch this queue.
  const std::lock_guard lock(impl_->mutex);
  impl_->ready.push_back(std::move(work));
  impl_->posted.notify_one();
}

Date ManualMainQueue::now() const {
  return impl_->start + Seconds(uptime());
}
Duration ManualMainQueue::uptime() const {
  return impl_->passed;
}

bool ManualMainQueue::hasTimers() const {
  return impl_->timers.hasOneShot();
}

Timer ManualMainQueue::after(Duration delay, Work work) {
  return impl_->timers.after(delay, std::move(work));
}

Timer ManualMainQueue::every(Duration period, std::function<void()> work) {
  return impl_->timers.every(period, std::move(work));
}

}  // namespace vantrell
