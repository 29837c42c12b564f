#include "engine/core/run_lifecycle.h"

#include <fmt/format.h>
#include <utility>

#include "records/values/agent_provider.h"

namespace vantrell {

RunLifecycle::RunLifecycle(MainQueue& main, WorkspaceTree& tree, ExecutionTable& executions,
                           EngineEvents& events)
    : main_(main), tree_(tree), executions_(executions), events_(events) {}

void RunLifecycle::markActivity(ThreadExecutionRuntime& execution) {
  execution.lastActivityAt = main_.now();
  execution.lastPersistedActivityAt = execution.lastActivityAt;
  execution.stallWarningSent = false;
}

// ---- the way to the agent -----------------------------------------------------------------------

RunLifecycle::Preparation RunLifecycle::preparing(const ThreadExecutionKey& key,
                                                  std::string entryID) {
  events_.prepareNotifications();
  ThreadExecutionRuntime& execution = executions_.execution(key);
  const Preparation preparation{execution.connectionState == ConnectionState::ready(),
                                execution.stopCount};
  execution.turnEntryID = std::move(entryID);
  execution.runLostWithClient.reset();
  execution.connectionState = ConnectionState::connecting();
  // Checkpoint and hooks may take a while, and the silence since the last turn does not count.
  execution.lastActivityAt = main_.now();
  execution.stallWarningSent = false;
  executions_.changed(key);
  return preparation;
}

bool RunLifecycle::wasStopped(const ThreadExecutionKey& key, const Preparation& preparation) const {
  const auto* execution = executions_.find(key);
  return !execution || execution->stopCount != preparation.stopCount || !tree_.thread(key);
}

Uuid RunLifecycle::begin(std::string prompt, const ThreadExecutionKey& key) {
  ThreadExecutionRuntime& execution = executions_.execution(key);
  cancelRun(std::exchange(execution.activeRunID, std::nullopt), key, "Replaced by a newer prompt.");
  const Uuid runID = tree_.beginRun(std::move(prompt), key);
  execution.activeRunID = runID;
  return runID;
}

void RunLifecycle::routed(const ThreadExecutionKey& key, const Uuid& runID,
                          std::optional<std::string> reason) {
  tree_.updateRun(runID, key, [&](RunRecord& run) { run.routingReason = std::move(reason); });
}

namespace {

/// Notes which provider serves the run, with the model and effort chosen for it in the thread.
void noteProvider(RunRecord& run, AgentProvider provider, const ChatThread& thread) {
  run.provider = provider;
  run.modelID = thread.modelID(provider);
  run.effort = thread.effort(provider);
}

}  // namespace

void RunLifecycle::connecting(const ThreadExecutionKey& key, const std::optional<Uuid>& runID,
                              AgentProvider provider) {
  ThreadExecutionRuntime& execution = executions_.execution(key);
  endOpenTools(execution, key);
  execution.connectionState = ConnectionState::connecting();
  execution.cliLog.clear();
  execution.activeProvider = provider;
  execution.activeRunID = runID;
  markActivity(execution);
  const ChatThread* thread = tree_.thread(key);
  tree_.updateRun(runID, key, [&](RunRecord& run) {
    if (thread) noteProvider(run, provider, *thread);
    run.status = RunRecordStatus::starting;
    run.statusMessage = fmt::format("Connecting to {}…", shortLabel(provider));
    run.lastActivityAt = execution.lastActivityAt;
  });
  executions_.changed(key);
}

void RunLifecycle::retrying(const ThreadExecutionKey& key, const std::optional<Uuid>& runID,
                            AgentProvider provider, std::function<void()> again) {
  ThreadExecutionRuntime& execution = executions_.execution(key);
  execution.lastActivityAt = main_.now();
  tree_.updateRun(runID, key, [&](RunRecord& run) {
    run.status = RunRecordStatus::starting;
    run.statusMessage =
        fmt::format("{} did not finish connecting. Retrying once…", shortLabel(provider));
    run.lastActivityAt = main_.now();
  });
  executions_.changed(key);
  // The state stays `connecting` through the pause: a prompt is queued, a stop ends the retry.
  execution.retryTimer = main_.after(pauseBeforeRetry, [this, key, again = std::move(again)] {
    const auto* waiting = executions_.find(key);
    const bool isWaiting =
        waiting && !waiting->client() && waiting->connectionState == ConnectionState::connecting();
    if (isWaiting) again();
  });
}

void RunLifecycle::connected(const ThreadExecutionKey& key) {
  executions_.execution(key).connectionState = ConnectionState::ready();
  executions_.changed(key);
}

void RunLifecycle::working(const ThreadExecutionKey& key, const Uuid& runID,
                           AgentProvider provider) {
  ThreadExecutionRuntime& execution = executions_.execution(key);
  execution.fallbackMessageID = Uuid::random().text();
  execution.connectionState = ConnectionState::working();
  markActivity(execution);
  const ChatThread* thread = tree_.thread(key);
  tree_.updateRun(runID, key, [&](RunRecord& run) {
    if (thread) noteProvider(run, provider, *thread);  // a kept client passed no start for this run
    run.status = RunRecordStatus::running;
    run.statusMessage = fmt::format("{} is working", shortLabel(provider));
    run.lastActivityAt = execution.lastActivityAt;
  });
  executions_.changed(key);
}

void RunLifecycle::handingOff(const ThreadExecutionKey& key, const Uuid& runID, AgentProvider from,
                              AgentProvider to) {
  tree_.appendSystemEntry(fmt::format("{} allowance reached. Automatically handed this task to {}.",
                                      shortLabel(from), shortLabel(to)),
                          key);
  routed(key, runID,
         fmt::format("{} allowance reached; continued with {}.", shortLabel(from), shortLabel(to)));
  executions_.execution(key).connectionState = ConnectionState::idle();
  executions_.changed(key);
}

// ---- during the turn ----------------------------------------------------------------------------

void RunLifecycle::waiting(const ThreadExecutionKey& key, const std::string& title) {
  ThreadExecutionRuntime& execution = executions_.execution(key);
  markActivity(execution);
  tree_.updateRun(execution.activeRunID, key, [&](RunRecord& run) {
    run.status = RunRecordStatus::waitingApproval;
    run.statusMessage = title;
    run.lastActivityAt = execution.lastActivityAt;
  });
  executions_.changed(key);
  events_.taskEvent(TaskEventKind::needsAttention, title, key);
}

void RunLifecycle::resumed(const ThreadExecutionKey& key, bool isDecided) {
  ThreadExecutionRuntime* execution = executions_.find(key);
  if (!execution) return;
  execution->lastActivityAt = main_.now();  // the silence until now was the user's
  tree_.updateRun(execution->activeRunID, key, [&](RunRecord& run) {
    run.status = RunRecordStatus::running;
    run.lastActivityAt = execution->lastActivityAt;
    if (isDecided) {
      run.statusMessage = "Continuing after your decision";
    } else if (run.provider) {
      run.statusMessage = fmt::format("{} is working", shortLabel(*run.provider));
    }
  });
  executions_.changed(key);
}

void RunLifecycle::active(const ThreadExecutionKey& key) {
  ThreadExecutionRuntime& execution = executions_.execution(key);
  const Date now = main_.now();
  const bool wasStalled = std::exchange(execution.stallWarningSent, false);
  execution.lastActivityAt = now;
  tree_.noteActivity(execution.activeRunID, key);
  if (!wasStalled && now - execution.lastPersistedActivityAt < WorkspaceTree::streamInterval) {
    return;
  }
  execution.lastPersistedActivityAt = now;
  if (wasStalled) {
    tree_.updateRun(execution.activeRunID, key, [&](RunRecord& run) {
      run.statusMessage = fmt::format(
          "{} resumed activity.",
          execution.activeProvider ? shortLabel(*execution.activeProvider) : "The agent");
    });
  }
  executions_.changed(key);
}

void RunLifecycle::waitsFor(const ThreadExecutionKey& key, const std::string& text) {
  const auto* execution = executions_.find(key);
  if (!execution) return;
  tree_.updateRun(execution->activeRunID, key, [&](RunRecord& run) { run.statusMessage = text; });
  executions_.changed(key);
}

void RunLifecycle::stalled(const ThreadExecutionKey& key, const std::string& text) {
  ThreadExecutionRuntime& execution = executions_.execution(key);
  execution.stallWarningSent = true;
  tree_.updateRun(execution.activeRunID, key, [&](RunRecord& run) {
    run.statusMessage = text;
    run.lastActivityAt = execution.lastActivityAt;
  });
  executions_.changed(key);
  events_.taskEvent(TaskEventKind::needsAttention, text, key);
}

// ---- the ends -----------------------------------------------------------------------------------

void RunLifecycle::completed(const ThreadExecutionKey& key, const Uuid& runID,
                             AgentProvider provider) {
  ThreadExecutionRuntime& execution = executions_.execution(key);
  const std::string text = fmt::format("{} finished the task.", shortLabel(provider));
  execution.connectionState = ConnectionState::ready();
  execution.lastActivityAt = main_.now();
  execution.stallWarningSent = false;
  execution.activeRunID.reset();
  execution.errorMessage.reset();
  executions_.clearError();
  tree_.updateRun(runID, key, [&](RunRecord& run) {
    run.status = RunRecordStatus::completed;
    run.statusMessage = text;
    run.lastActivityAt = execution.lastActivityAt;
    run.completedAt = execution.lastActivityAt;
  });
  executions_.changed(key);
  events_.taskEvent(TaskEventKind::completed, text, key);
}

void RunLifecycle::failed(const ThreadExecutionKey& key, std::optional<Uuid> runID,
                          const Failure& failure) {
  const Date now = main_.now();
  ThreadExecutionRuntime& execution = executions_.execution(key);
  execution.connectionState = ConnectionState::failed(failure.description);
  execution.errorMessage = failure.text;
  endOpenTools(execution, key);
  if (execution.activeRunID == runID) execution.activeRunID.reset();
  if (failure.isActivity) execution.lastActivityAt = now;
  tree_.updateRun(runID, key, [&](RunRecord& run) {
    run.status = RunRecordStatus::failed;
    run.statusMessage = failure.text;
    if (failure.isActivity) run.lastActivityAt = now;
    run.completedAt = now;
  });
  if (failure.entry) tree_.appendSystemEntry(*failure.entry, key);
  executions_.changed(key);
  if (failure.isTold) events_.taskEvent(TaskEventKind::needsAttention, failure.text, key);
}

void RunLifecycle::clientLost(const ThreadExecutionKey& key, const std::string& text) {
  ThreadExecutionRuntime& execution = executions_.execution(key);
  const auto provider = execution.activeProvider;
  const auto lost = std::exchange(execution.runLostWithClient, std::nullopt);
  execution.endClient();
  const RunRecord* active = tree_.run(execution.activeRunID, key);
  const bool isOnItsWay = active ? active->provider != provider
                                 : execution.connectionState == ConnectionState::connecting();
  if (isOnItsWay) return executions_.changed(key);
  failed(key, active ? execution.activeRunID : lost, {.description = text, .text = text});
}

bool RunLifecycle::stop(const ThreadExecutionKey& key) {
  ThreadExecutionRuntime* execution = executions_.find(key);
  if (!execution) return false;
  const bool wasUnderWay = execution->connectionState.isBusy() || execution->activeRunID ||
                           execution->permissionRequest();
  ++execution->stopCount;
  if (execution->connectionState == ConnectionState::connecting()) {
    execution->endClient();
  } else {
    execution->session->cancel();
  }
  if (!wasUnderWay) return false;
  execution->connectionState = ConnectionState::ready();
  cancelRun(std::exchange(execution->activeRunID, std::nullopt), key, "Stopped by you.");
  tree_.appendSystemEntry("Stopped by you.", key);
  executions_.changed(key);
  return true;
}

void RunLifecycle::cancelRun(const std::optional<Uuid>& runID, const ThreadExecutionKey& key,
                             std::string_view reason) {
  tree_.updateRun(runID, key, [&](RunRecord& run) {
    if (!isActive(run.status)) return;
    run.status = RunRecordStatus::cancelled;
    run.statusMessage = std::string(reason);
    run.completedAt = main_.now();
  });
}

void RunLifecycle::resetConnection(const ThreadExecutionKey& key, std::string_view reason) {
  const auto execution = executions_.take(key);
  if (!execution) return;
  execution->endClient();
  endOpenTools(*execution, key);
  if (execution->activeRunID) {
    cancelRun(execution->activeRunID, key, reason);
  } else if (execution->connectionState.isBusy()) {
    // The prompt stands in the transcript and its run has not begun: nothing else would say why
    // there is no answer.
    tree_.appendSystemEntry(std::string(reason), key);
  }
  // A turn that was on its way must not wake up in the next live state, and what a front end chose
  // for its turns holds until that one ends.
  const int stops = execution->stopCount + (execution->connectionState.isBusy() ? 1 : 0);
  if (stops > 0 || execution->choices != RunChoices()) {
    auto& next = executions_.execution(key);
    next.stopCount = stops;
    next.choices = std::move(execution->choices);
  }
  executions_.changed(key);
}

void RunLifecycle::forget(const ThreadExecutionKey& key) {
  const auto execution = executions_.take(key);
  if (!execution) return;
  execution->endClient();
  endOpenTools(*execution, key);
  cancelRun(execution->activeRunID, key, connectionReset);
  executions_.changed(key);
}

void RunLifecycle::endClient(const ThreadExecutionKey& key) {
  ThreadExecutionRuntime* execution = executions_.find(key);
  if (!execution) return;
  execution->endClient();
  endOpenTools(*execution, key);
  if (!execution->connectionState.isBusy()) execution->connectionState = ConnectionState::idle();
  executions_.changed(key);
}

void RunLifecycle::resetIdleConnections() {
  for (const auto& key : executions_.keys()) {
    const auto* execution = executions_.find(key);
    if (execution->client() && !executions_.isBusy(key) && !execution->permissionRequest()) {
      resetConnection(key);
    }
  }
}

void RunLifecycle::stopAll(std::string_view reason) {
  for (const auto& key : executions_.keys()) {
    if (executions_.isBusy(key)) executions_.find(key)->session->cancel();
    resetConnection(key, reason);
  }
}

void RunLifecycle::endAll() {
  for (const auto& key : executions_.keys()) {
    const auto execution = executions_.take(key);
    execution->endClient();
    endOpenTools(*execution, key);
    executions_.changed(key);
  }
}

void RunLifecycle::endOpenTools(ThreadExecutionRuntime& execution, const ThreadExecutionKey& key) {
  for (const std::string& id : std::exchange(execution.openTools, {})) {
    tree_.updateEntry(id, key, [](ChatEntry& entry) { entry.status = "failed"; });
  }
}

void RunLifecycle::endOpenTools(const ThreadExecutionKey& key) {
  if (auto* execution = executions_.find(key)) endOpenTools(*execution, key);
}

}  // namespace vantrell
