#include "engine/turns/turn_failures.h"

#include "engine/core/friendly_error.h"
#include "engine/core/open_tools.h"
#include "platform/queues/dispatch.h"

namespace vantrell {

TurnFailures::TurnFailures(EngineCore& core)
    : main_(core.main), tree_(core.tree), executions_(core.executions), ports_(core.ports) {}

void TurnFailures::fail(const ThreadExecutionKey& key, std::optional<Uuid> runID, Failure failure) {
  const Date now = main_.now();
  ThreadExecutionRuntime& execution = executions_.execution(key);
  execution.connectionState = ConnectionState::failed(failure.description);
  execution.errorMessage = failure.text;
  endOpenTools(execution, key, tree_);
  if (execution.activeRunID == runID) execution.activeRunID.reset();
  tree_.updateRun(runID, key, [&](RunRecord& run) {
    run.status = RunRecordStatus::failed;
    run.statusMessage = failure.text;
    if (failure.isActivity) run.lastActivityAt = now;
    run.completedAt = now;
  });
  if (failure.entry) tree_.appendSystemEntry(std::move(*failure.entry), key);
  executions_.publishExecutionIfSelected(key);
  if (failure.isToldToClients) ports_.sendRemoteTaskEvent("needs_attention", failure.text, key);
}

std::string TurnFailures::advice(const std::string& description, AgentProvider provider) const {
  const auto& own = ports_.connector(provider).advice;
  return own ? own(description) : friendlyError(description, provider);
}

}  // namespace vantrell
