// A main queue with virtual time, for tests: nothing runs and no time passes until a test says so.
#pragma once

#include <functional>
#include <memory>

#include "platform/queues/dispatch.h"

namespace vantrell {

class ManualMainQueue final : public MainQueue {
 public:
  explicit ManualMainQueue(Date start = Date(800'000'000));
  ~ManualMainQueue() override;

  /// Runs posted work, and what it posts, until none is left. Time stands still.
  void runReady();
  /// Lets virtual time pass, firing each timer at its own instant and running ready work between.
  void advance(Duration by);
  /// Whether something waits for time to pass. What repeats does not count: it runs as long as its
  /// owner, and waits for nothing.
  bool hasTimers() const;
  /// Waits (real time, at most `limit`) for another thread to post, then runs what is ready, until
  /// the condition holds. False when the limit ran out.
  bool runUntil(const std::function<bool()>& condition, Duration limit = std::chrono::seconds(20));

  void post(Work work) override;
  Date now() const override;
  Duration uptime() const override;
  [[nodiscard]] Timer after(Duration delay, Work work) override;
  [[nodiscard]] Timer every(Duration period, std::function<void()> work) override;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace vantrell
