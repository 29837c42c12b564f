// The main queue of programs without a window: run() makes the calling thread the main thread.
// Signal and line watches must be gone before their loop.
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

  /// Reads lines (without their line feed) from a descriptor, on this queue, until end of file or
  /// until the returned watch is destroyed. `onEnd` is called once at end of file or error; a last
  /// line without a line feed is delivered before it. A terminal is read only while this process
  /// is in its foreground. The descriptor stays the caller's.
  class LineWatch;
  [[nodiscard]] std::shared_ptr<LineWatch> watchLines(int descriptor,
                                                      std::function<void(std::string)> onLine,
                                                      std::function<void()> onEnd);
  /// Forgets what was typed at the watch's terminal and not delivered yet, so that keys pressed
  /// earlier answer no question. This queue.
  static void discardPending(LineWatch& watch);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace vantrell
