#include "engine/turns/prompt_queue.h"

#include <algorithm>
#include <utility>

#include "platform/queues/dispatch.h"

namespace vantrell {

PromptQueue::PromptQueue(EngineCore& core)
    : main_(core.main),
      tree_(core.tree),
      selection_(core.selection),
      executions_(core.executions) {}

void PromptQueue::enqueuePrompt(std::string text, std::vector<ChatAttachment> attachments,
                                const ThreadExecutionKey& key) {
  if (!tree_.thread(key)) return;
  tree_.updateThread(key, [&](ChatThread& thread) {
    thread.queuedPrompts.push_back(
        {Uuid::random(), std::move(text), std::move(attachments), main_.now()});
    thread.updatedAt = main_.now();
  });
}

void PromptQueue::runNextQueuedPrompt(const ThreadExecutionKey& key) {
  const auto* execution = executions_.find(key);
  const ChatThread* thread = tree_.thread(key);
  if ((execution && execution->connectionState.isBusy()) || !thread ||
      thread->queuedPrompts.empty()) {
    return;
  }
  QueuedPrompt prompt;
  tree_.updateThread(key, [&](ChatThread& each) {
    prompt = std::move(each.queuedPrompts.front());
    each.queuedPrompts.erase(each.queuedPrompts.begin());
  });
  // It saves, and so the store has the prompt in one of the two places at every moment.
  sendNow(std::move(prompt.text), std::move(prompt.attachments), key);
}

void PromptQueue::runNextQueuedPrompt() {
  if (const auto key = selection_.key()) runNextQueuedPrompt(*key);
}

void PromptQueue::moveQueuedPromptToFront(const Uuid& id) {
  const auto key = selection_.key();
  const ChatThread* thread = key ? tree_.thread(*key) : nullptr;
  if (!thread) return;
  const auto& queue = thread->queuedPrompts;
  const auto found = std::ranges::find(queue, id, &QueuedPrompt::id);
  if (found == queue.end() || found == queue.begin()) return;
  tree_.updateThread(*key,
                     [&](ChatThread& each) { each.moveQueuedPromptToFront(id, main_.now()); });
}

void PromptQueue::removeQueuedPrompt(const Uuid& id) {
  removeWhere([&](const QueuedPrompt& prompt) { return prompt.id == id; });
}

void PromptQueue::clearQueuedPrompts() {
  removeWhere([](const QueuedPrompt&) { return true; });
}

void PromptQueue::removeWhere(const std::function<bool(const QueuedPrompt&)>& isMeant) {
  const auto key = selection_.key();
  const ChatThread* thread = key ? tree_.thread(*key) : nullptr;
  if (!thread || std::ranges::none_of(thread->queuedPrompts, isMeant)) return;
  tree_.updateThread(*key, [&](ChatThread& each) {
    std::erase_if(each.queuedPrompts, isMeant);
    each.updatedAt = main_.now();
  });
}

}  // namespace vantrell
