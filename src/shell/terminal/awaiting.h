// Waits for something that the main queue completes, in a command that has nothing else to do.
// Main thread; the loop must not be running already.
#pragma once

#include <functional>

#include "platform/queues/run_loop.h"

namespace vantrell::shell {

/// Calls `start`, and runs the loop until it has called what it was given. Where it did so at once,
/// the loop does not run.
inline void await(RunLoop& loop, const std::function<void(std::function<void()> done)>& start) {
  bool isDone = false, isWaiting = false;
  start([&] {
    isDone = true;
    if (isWaiting) loop.quit();
  });
  isWaiting = true;
  if (!isDone) loop.run();
}

}  // namespace vantrell::shell
