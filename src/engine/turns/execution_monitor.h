// Warns once about each long silence of an agent. It never stops a task: the agent may still be at
// work. Main queue.
#pragma once

#include <memory>

#include "engine/core/run_lifecycle.h"

namespace vantrell {

class ExecutionMonitor : public std::enable_shared_from_this<ExecutionMonitor> {
 public:
  ExecutionMonitor(MainQueue& main, ExecutionTable& executions, RunLifecycle& runs);

  /// Begins to look every 30 seconds; called again, it begins from the start.
  void configureExecutionMonitor();
  /// Looks at every conversation that is at work, selected or not. One that waits for an answer of
  /// the user is not silent.
  void checkExecutionHealth(Date at);

  static constexpr std::chrono::seconds period{30};

 private:
  MainQueue& main_;
  ExecutionTable& executions_;
  RunLifecycle& runs_;
  Timer timer_;
};

}  // namespace vantrell
