#include "engine/turns/composer.h"

#include <utility>

#include "platform/queues/weakly.h"
#include "platform/text/text.h"

namespace vantrell {

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
  if (mustWait(key)) {
    return core_.queue.enqueuePrompt(std::move(prompt), std::move(attachments), key);
  }
  return sendNow(std::move(prompt), std::move(attachments), key);
}

Result<> Composer::sendNow(std::string text, std::vector<ChatAttachment> attachments,
                           const ThreadExecutionKey& key) {
  return core_.starter.start(
      key, std::move(text), std::move(attachments),
      weakly(this, [key](Composer& self) { static_cast<void>(self.runNextQueuedPrompt(key)); }));
}

Result<> Composer::runNextQueuedPrompt(const ThreadExecutionKey& key) {
  if (mustWait(key)) {
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
