#include "engine/turns/composer.h"

#include <fmt/format.h>

#include "engine/turns/prompt_assembly.h"
#include "platform/queues/weakly.h"
#include "platform/text/text.h"

namespace vantrell {

namespace {
constexpr std::size_t checkpointLabelLength = 48;  // user-perceived characters of the prompt
}

Composer::Composer(EngineCore& core, SessionStatusService& status, PromptQueue& queue,
                   ProjectContextService& context, HookRunner& hooks, TurnRunner& delivery)
    : main_(core.main),
      settings_(core.settings),
      tree_(core.tree),
      selection_(core.selection),
      executions_(core.executions),
      status_(status),
      queue_(queue),
      context_(context),
      hooks_(hooks),
      delivery_(delivery),
      ports_(core.ports) {}

bool Composer::canSend() const {
  return selection_.workspaceID() && !executions_.mirror().connectionState.isBusy();
}

bool Composer::canSubmitPrompt() const {
  return selection_.workspaceID().has_value();
}

void Composer::send(std::string_view text, std::vector<ChatAttachment> attachments) {
  std::string prompt(text::trimmed(text));
  const auto key = selection_.key();
  if (prompt.empty() || !selection_.workspaceID() || !key) return;
  // Before a busy state counts: the answer does not wait for the agent.
  if (attachments.empty() && SessionStatusQuery::matches(prompt)) {
    return status_.respondToSessionStatus(std::move(prompt), *key);
  }
  const auto* execution = executions_.find(*key);
  if (execution && execution->connectionState.isBusy()) {
    return queue_.enqueuePrompt(std::move(prompt), std::move(attachments), *key);
  }
  sendNow(std::move(prompt), std::move(attachments), *key);
}

void Composer::sendNow(std::string text, std::vector<ChatAttachment> attachments) {
  if (const auto key = selection_.key()) sendNow(std::move(text), std::move(attachments), *key);
}

void Composer::sendNow(std::string text, std::vector<ChatAttachment> attachments,
                       const ThreadExecutionKey& key) {
  if (!tree_.thread(key)) return;
  ports_.prepareNotifications();
  tree_.loadTranscript(key);  // a capsule may need it
  tree_.updateThreadTitleIfNeeded(text, key);

  ChatEntry entry;
  entry.id = Uuid::random().text();
  entry.kind = ChatEntryKind::user;
  entry.text = text;
  entry.attachments = attachments;
  entry.createdAt = main_.now();
  ThreadExecutionRuntime& execution = executions_.execution(key);
  execution.turnEntryID = entry.id;
  execution.runLostWithClient.reset();
  tree_.appendEntry(std::move(entry), key);

  const bool clientWasReady = execution.connectionState == ConnectionState::ready();
  execution.connectionState = ConnectionState::connecting();
  // Checkpoint and hooks may take a while, and the silence since the last turn was none.
  execution.lastActivityAt = main_.now();
  execution.stallWarningSent = false;
  executions_.publishExecutionIfSelected(key);
  main_.post(weakly(this, [text = std::move(text), attachments = std::move(attachments), key,
                           clientWasReady, stopCount = execution.stopCount](Composer& self) {
    self.beginTurn(text, attachments, key, clientWasReady, stopCount);
  }));
}

void Composer::beginTurn(const std::string& text, const std::vector<ChatAttachment>& attachments,
                         const ThreadExecutionKey& key, bool clientWasReady, int stopCount) {
  const auto wasStopped = [key, stopCount](Composer& self) {
    const auto* execution = self.executions_.find(key);
    return !self.tree_.thread(key) || !execution || execution->stopCount != stopCount;
  };
  if (wasStopped(*this)) return;
  const auto startRun = weakly(this, [=](Composer& self) {
    // Checkpoint and hooks may have taken a while.
    if (wasStopped(self)) return;
    self.replaceRun(key);
    const Uuid runID = self.tree_.beginRun(text, key);
    self.executions_.execution(key).activeRunID = runID;
    Turn turn{key, runID, {}, {}, clientWasReady};
    self.context_.projectContextPrompt(
        key, weakly(&self, [turn, text, attachments, mode = self.settings_.workflowMode()](
                               Composer& driver, const std::string& block) mutable {
          // Reading the project's guidance may have taken a while.
          if (!driver.delivery_.isLive(turn)) return;
          turn.originalPrompt = assemblePrompt(text, attachments, mode, block);
          driver.delivery_.routePrompt(turn);
        }));
  });
  const auto runHooks = weakly(this, [key, startRun](Composer& self) {
    self.hooks_.runProjectHooks(ProjectHookEvent::beforeTask, key, startRun);
  });
  ports_.captureCheckpoint(
      key, fmt::format("Before: {}", text::firstCharacters(text, checkpointLabelLength)),
      WorkspaceCheckpointKind::automatic, runHooks);
}

/// Whoever sends without a look at the state takes the place of the turn that is under way, whose
/// client is replaced.
void Composer::replaceRun(const ThreadExecutionKey& key) {
  ThreadExecutionRuntime& execution = executions_.execution(key);
  const auto replaced = std::exchange(execution.activeRunID, std::nullopt);
  if (!replaced) return;
  execution.permissionRequest = nullptr;
  tree_.updateRun(replaced, key, [&](RunRecord& run) {
    run.status = RunRecordStatus::cancelled;
    run.statusMessage = "Replaced by a newer prompt.";
    run.completedAt = main_.now();
  });
}

void Composer::stopWorking() {
  const auto key = selection_.key();
  ThreadExecutionRuntime* execution = key ? executions_.find(*key) : nullptr;
  if (!execution) return;
  ++execution->stopCount;
  if (execution->connectionState == ConnectionState::connecting()) {
    execution->endClient();
  } else if (execution->client) {
    execution->client->cancel();
  }
  execution->permissionRequest = nullptr;
  execution->connectionState = ConnectionState::ready();
  tree_.updateRun(std::exchange(execution->activeRunID, std::nullopt), *key, [&](RunRecord& run) {
    run.status = RunRecordStatus::cancelled;
    run.statusMessage = "Stopped by you.";
    run.completedAt = main_.now();
  });
  tree_.appendSystemEntry("Stopped by you.", *key);
  executions_.publishExecutionIfSelected(*key);
}

}  // namespace vantrell
