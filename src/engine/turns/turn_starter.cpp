#include "engine/turns/turn_starter.h"

#include <fmt/format.h>
#include <utility>

#include "platform/queues/weakly.h"
#include "platform/text/text.h"

namespace vantrell {

namespace {
constexpr std::size_t checkpointLabelLength = 48;  // user-perceived characters of the prompt
}

Result<> TurnStarter::start(const ThreadExecutionKey& key, std::string text,
                            std::vector<ChatAttachment> attachments,
                            std::function<void()> whenCompleted) {
  if (!core_.tree.thread(key)) return refuseMissingConversation();
  core_.tree.loadTranscript(key);  // a capsule may need it
  core_.tree.updateThreadTitleIfNeeded(text, key);
  ChatEntry entry;
  entry.id = Uuid::random().text();
  entry.kind = ChatEntryKind::user;
  entry.text = text;
  entry.attachments = attachments;
  entry.createdAt = core_.main.now();
  Prompt prompt{.key = key,
                .text = std::move(text),
                .attachments = std::move(attachments),
                .whenCompleted = std::move(whenCompleted)};
  prompt.preparation = core_.runs.preparing(key, entry.id);
  core_.tree.appendEntry(std::move(entry), key);
  core_.main.post(weakly(
      this, [prompt = std::move(prompt)](TurnStarter& self) { self.takeCheckpoint(prompt); }));
  return {};
}

void TurnStarter::takeCheckpoint(const Prompt& prompt) {
  if (wasStopped(prompt)) return;
  core_.safety.captureBeforePrompt(
      prompt.key,
      fmt::format("Before: {}", text::firstCharacters(prompt.text, checkpointLabelLength)),
      weakly(this, [prompt](TurnStarter& self) { self.runHooks(prompt); }));
}

void TurnStarter::runHooks(const Prompt& prompt) {
  core_.hooks.runProjectHooks(ProjectHookEvent::beforeTask, prompt.key,
                              weakly(this, [prompt](TurnStarter& self) { self.beginRun(prompt); }));
}

void TurnStarter::beginRun(const Prompt& prompt) {
  if (wasStopped(prompt)) return;
  core_.turns.run({.key = prompt.key,
                   .runID = core_.runs.begin(prompt.text, prompt.key),
                   .clientWasReady = prompt.preparation.clientWasReady,
                   .whenCompleted = prompt.whenCompleted},
                  prompt.text, prompt.attachments);
}

}  // namespace vantrell
