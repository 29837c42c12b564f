// A background whose work is done at once, or when the test lets it; its answers wait for the main
// queue all the same.
#pragma once

#include <utility>
#include <vector>

#include "platform/queues/dispatch.h"

namespace vantrell::tests {

struct HeldExecutor final : Executor {
  void post(Work work) override {
    if (isHeld) {
      held.push_back(std::move(work));
    } else {
      work();
    }
  }
  /// Does what waits, and holds nothing any more.
  void release() {
    isHeld = false;
    for (auto& work : std::exchange(held, {})) work();
  }
  bool isHeld = false;
  std::vector<Work> held;
};

}  // namespace vantrell::tests
