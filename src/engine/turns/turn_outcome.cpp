#include "engine/turns/turn_outcome.h"

#include <fmt/format.h>

#include "platform/queues/weakly.h"

namespace vantrell {

TurnOutcome::TurnOutcome(MainQueue& main, RunLifecycle& runs, ExecutionTable& executions,
                         const ProviderSetup& setup, GitSnapshotService& git, HookRunner& hooks)
    : main_(main), runs_(runs), executions_(executions), setup_(setup), git_(git), hooks_(hooks) {}

void TurnOutcome::completed(const Turn& turn, AgentProvider provider) {
  git_.refreshIfSelected(turn.key);
  runs_.completed(turn.key, turn.runID, provider);
  runHooks(ProjectHookEvent::afterTask, turn.key);
  if (turn.whenCompleted) turn.whenCompleted();
}

void TurnOutcome::failed(const AgentError& error, const Turn& turn, AgentProvider provider) {
  if (error.isDisconnection()) executions_.execution(turn.key).runLostWithClient = turn.runID;
  const std::string& description = error.localizedDescription();
  runs_.failed(turn.key, turn.runID,
               {.description = description,
                .text = setup_.advice(description, provider, turn.key),
                .entry = fmt::format("Error from {}: {}", shortLabel(provider), description)});
  runHooks(ProjectHookEvent::taskFailed, turn.key);
}

void TurnOutcome::runHooks(ProjectHookEvent event, const ThreadExecutionKey& key) {
  main_.post(weakly(
      this, [event, key](TurnOutcome& self) { self.hooks_.runProjectHooks(event, key, [] {}); }));
}

}  // namespace vantrell
