#include "engine/turns/execution_monitor.h"

#include <fmt/format.h>

#include "engine/turns/run_activity_timing.h"
#include "engine/turns/session_status.h"
#include "platform/queues/weakly.h"

namespace vantrell {

ExecutionMonitor::ExecutionMonitor(MainQueue& main, ExecutionTable& executions, RunLifecycle& runs)
    : main_(main), executions_(executions), runs_(runs) {}

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
    if (execution->permissionRequest() || execution->stallWarningSent) continue;
    if (at - execution->lastActivityAt < stalledAfter) continue;
    runs_.stalled(
        key, fmt::format(
                 "{} has produced no new activity for {}. It may still be working; you can keep "
                 "waiting or stop the task.",
                 execution->activeProvider ? shortLabel(*execution->activeProvider) : "The agent",
                 RunActivityTiming::elapsedLabel(execution->lastActivityAt, at)));
  }
}

}  // namespace vantrell
