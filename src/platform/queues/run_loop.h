// The main queue of programs without a window: run() makes the calling thread the main thread.
// Signal watches must be gone before their loop.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "platform/queues/dispatch.h"

namespace vantrell {

class RunLoop final : public MainQueue {
 public:
  RunLoop();
  ~RunLoop() override;

  /// Runs work until quit(). May be called again afterwards; work that was left waits for it.
  void run();
  /// Makes run() return after the present piece of work; called before run(), makes it return at
  /// once. Any thread.
  void quit();

  void post(Work work) override;
  Date now() const override;
  Duration uptime() const override;
  [[nodiscard]] Timer after(Duration delay, Work work) override;
  [[nodiscard]] Timer every(Duration period, std::function<void()> work) override;

  /// Calls the handler on this queue for each delivery of one of the signals (SIGINT and so on),
  /// until the returned watch is destroyed; then the signals get their default action back.
  class SignalWatch;
  [[nodiscard]] std::shared_ptr<SignalWatch> watchSignals(const std::vector<int>& signals,
                                                          std::function<void(int)> handler);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace vantrell
