#include "engine/turns/composer.h"

#include <fmt/format.h>
#include <utility>

#include "engine/turns/prompt_assembly.h"
#include "platform/queues/weakly.h"
#include "platform/text/text.h"

namespace vantrell {

namespace {
constexpr std::size_t checkpointLabelLength = 48;  // user-perceived characters of the prompt
}

Result<> Composer::send(std::string_view text, std::vector<ChatAttachment> attachments,
                        const ThreadExecutionKey& key) {
  std::string prompt(text::trimmed(text));
  if (prompt.empty()) return refuse("Type a prompt first.");
  if (!core_.tree.thread(key)) return refuseMissingConversation();
  // Before a busy state counts: the answer does not wait for the agent.
  if (attachments.empty() && SessionStatusQuery::matches(prompt)) {
    core_.status.respondToSessionStatus(std::move(prompt), key);
    return {};
  }
  if (core_.executions.isBusy(key) || (gate_ && gate_->isPreparing(key))) {
    return core_.queue.enqueuePrompt(std::move(prompt), std::move(attachments), key);
  }
  return sendNow(std::move(prompt), std::move(attachments), key);
}

Result<> Composer::sendNow(std::string text, std::vector<ChatAttachment> attachments,
                           const ThreadExecutionKey& key) {
  if (!core_.tree.thread(key)) return refuseMissingConversation();
  core_.events.prepareNotifications();
  core_.tree.loadTranscript(key);  // a capsule may need it
  core_.tree.updateThreadTitleIfNeeded(text, key);

  ChatEntry entry;
  entry.id = Uuid::random().text();
  entry.kind = ChatEntryKind::user;
  entry.text = text;
  entry.attachments = attachments;
  entry.createdAt = core_.main.now();
  ThreadExecutionRuntime& execution = core_.executions.execution(key);
  execution.turnEntryID = entry.id;
  core_.tree.appendEntry(std::move(entry), key);

  Prompt prompt{.key = key,
                .text = std::move(text),
                .attachments = std::move(attachments),
                .clientWasReady = execution.connectionState == ConnectionState::ready(),
                .stopCount = execution.stopCount};
  core_.runs.preparing(key);
  core_.main.post(
      weakly(this, [prompt = std::move(prompt)](Composer& self) { self.takeCheckpoint(prompt); }));
  return {};
}

// ---- the steps of a turn up to its run ----------------------------------------------------------

/// Each step may take a while: the turn may have been stopped meanwhile, or its task deleted.
bool Composer::wasStopped(const Prompt& prompt) const {
  const auto* execution = core_.executions.find(prompt.key);
  return !core_.tree.thread(prompt.key) || !execution || execution->stopCount != prompt.stopCount;
}

void Composer::takeCheckpoint(const Prompt& prompt) {
  if (wasStopped(prompt)) return;
  core_.safety.captureBeforePrompt(
      prompt.key,
      fmt::format("Before: {}", text::firstCharacters(prompt.text, checkpointLabelLength)),
      weakly(this, [prompt](Composer& self) { self.runHooks(prompt); }));
}

void Composer::runHooks(const Prompt& prompt) {
  core_.hooks.runProjectHooks(ProjectHookEvent::beforeTask, prompt.key,
                              weakly(this, [prompt](Composer& self) { self.beginRun(prompt); }));
}

void Composer::beginRun(const Prompt& prompt) {
  if (wasStopped(prompt)) return;
  Turn turn{.key = prompt.key,
            .runID = core_.runs.begin(prompt.text, prompt.key),
            .clientWasReady = prompt.clientWasReady,
            .whenCompleted = weakly(this, [key = prompt.key](Composer& self) {
              static_cast<void>(self.runNextQueuedPrompt(key));
            })};
  core_.context.projectContextPrompt(
      prompt.key,
      weakly(this, [turn, prompt,
                    mode = core_.settings.workflowModeFor(core_.executions.choicesFor(prompt.key))](
                       Composer& self, const std::string& block) mutable {
        // Reading the project's guidance may have taken a while.
        if (!self.core_.turns.isLive(turn)) return;
        turn.originalPrompt = assemblePrompt(prompt.text, prompt.attachments, mode, block);
        self.core_.turns.routePrompt(turn);
      }));
}

// ---- the queue and the end ----------------------------------------------------------------------

Result<> Composer::runNextQueuedPrompt(const ThreadExecutionKey& key) {
  if (core_.executions.isBusy(key) || (gate_ && gate_->isPreparing(key))) {
    return refuse("The task is at work; its queue goes on by itself when the turn has ended.");
  }
  auto prompt = core_.queue.takeNext(key);
  if (!prompt) return refuse("No prompt is waiting.");
  return sendNow(std::move(prompt->text), std::move(prompt->attachments), key);
}

Result<> Composer::stopWorking(const ThreadExecutionKey& key) {
  if (!core_.tree.thread(key)) return refuseMissingConversation();
  core_.runs.stop(key);
  return {};
}

}  // namespace vantrell
