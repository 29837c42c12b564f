#include "engine/turns/turn_ends.h"

#include <fmt/format.h>

#include "platform/queues/weakly.h"

namespace vantrell {

TurnEnds::TurnEnds(EngineCore& core, PromptQueue& queue, TurnFailures& failures,
                   GitSnapshotService& git, HookRunner& hooks)
    : main_(core.main),
      tree_(core.tree),
      selection_(core.selection),
      executions_(core.executions),
      queue_(queue),
      failures_(failures),
      git_(git),
      hooks_(hooks),
      ports_(core.ports) {}

void TurnEnds::completed(const Turn& turn, AgentProvider provider) {
  ThreadExecutionRuntime& execution = executions_.execution(turn.key);
  const Date now = main_.now();
  const std::string text = fmt::format("{} finished the task.", shortLabel(provider));
  execution.connectionState = ConnectionState::ready();
  execution.lastActivityAt = now;
  execution.stallWarningSent = false;
  execution.activeRunID.reset();
  tree_.updateRun(turn.runID, turn.key, [&](RunRecord& run) {
    run.status = RunRecordStatus::completed;
    run.statusMessage = text;
    run.lastActivityAt = now;
    run.completedAt = now;
  });
  if (selection_.key() == turn.key) git_.refreshGitSnapshot();
  executions_.publishExecutionIfSelected(turn.key);
  ports_.sendRemoteTaskEvent("completed", text, turn.key);
  main_.post(weakly(this, [key = turn.key](TurnEnds& self) {
    self.hooks_.runProjectHooks(ProjectHookEvent::afterTask, key, [] {});
  }));
  queue_.runNextQueuedPrompt(turn.key);
}

void TurnEnds::failed(const AgentError& error, const Turn& turn, AgentProvider provider) {
  if (error.isDisconnection()) executions_.execution(turn.key).runLostWithClient = turn.runID;
  const std::string& description = error.localizedDescription();
  failures_.fail(turn.key, turn.runID,
                 {.description = description,
                  .text = failures_.advice(description, provider),
                  .entry = fmt::format("Error from {}: {}", shortLabel(provider), description)});
  main_.post(weakly(this, [key = turn.key](TurnEnds& self) {
    self.hooks_.runProjectHooks(ProjectHookEvent::taskFailed, key, [] {});
  }));
}

}  // namespace vantrell
