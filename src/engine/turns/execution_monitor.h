// Warns once about each long silence of an agent. It never stops a task: the agent may still be at
// work. Main queue.
#pragma once

#include <memory>

#include "engine/core/engine_core.h"

namespace vantrell {

class ExecutionMonitor : public std::enable_shared_from_this<ExecutionMonitor> {
 public:
  explicit ExecutionMonitor(EngineCore& core);

  /// Begins to look every 30 seconds; called again, it begins anew.
  void configureExecutionMonitor();
  /// Looks at every conversation that is at work, selected or not. One that waits for an answer of
  /// the user is not silent.
  void checkExecutionHealth(Date at);

  static constexpr std::chrono::seconds period{30};

 private:
  void warn(const ThreadExecutionKey& key, ThreadExecutionRuntime& execution, Date at);

  MainQueue& main_;
  WorkspaceTree& tree_;
  ExecutionTable& executions_;
  const EnginePorts& ports_;
  Timer timer_;
};

}  // namespace vantrell
