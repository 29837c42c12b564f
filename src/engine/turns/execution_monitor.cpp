#include "engine/turns/execution_monitor.h"

#include <fmt/format.h>

#include "engine/turns/run_activity_timing.h"
#include "engine/turns/session_status.h"
#include "platform/queues/weakly.h"

namespace vantrell {

ExecutionMonitor::ExecutionMonitor(EngineCore& core)
    : main_(core.main), tree_(core.tree), executions_(core.executions), ports_(core.ports) {}

void ExecutionMonitor::configureExecutionMonitor() {
  timer_.cancel();
  timer_ = main_.every(period, weakly(this, [](ExecutionMonitor& self) {
                         self.checkExecutionHealth(self.main_.now());
                       }));
}

void ExecutionMonitor::checkExecutionHealth(Date at) {
  // A warning may have consequences for the table.
  for (const auto& key : executions_.keys()) {
    ThreadExecutionRuntime* execution = executions_.find(key);
    if (!execution || !execution->connectionState.isBusy()) continue;
    if (execution->permissionRequest || execution->stallWarningSent) continue;
    if (at - execution->lastActivityAt >= stalledAfter) warn(key, *execution, at);
  }
}

void ExecutionMonitor::warn(const ThreadExecutionKey& key, ThreadExecutionRuntime& execution,
                            Date at) {
  execution.stallWarningSent = true;
  const std::string text = fmt::format(
      "{} has produced no new activity for {}. It may still be working; you can keep waiting or "
      "stop the task.",
      execution.activeProvider ? shortLabel(*execution.activeProvider) : "The agent",
      RunActivityTiming::elapsedLabel(execution.lastActivityAt, at));
  tree_.updateRun(execution.activeRunID, key, [&](RunRecord& run) {
    run.statusMessage = text;
    run.lastActivityAt = execution.lastActivityAt;
  });
  executions_.publishExecutionIfSelected(key);
  ports_.sendRemoteTaskEvent("needs_attention", text, key);
}

}  // namespace vantrell
