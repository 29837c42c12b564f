#include "engine/turns/prompt_queue.h"

#include <algorithm>
#include <utility>

#include "platform/queues/dispatch.h"

namespace vantrell {

Result<> PromptQueue::enqueuePrompt(std::string text, std::vector<ChatAttachment> attachments,
                                    const ThreadExecutionKey& key) {
  if (!tree_.thread(key)) return refuseMissingConversation();
  tree_.updateThread(key, [&](ChatThread& thread) {
    thread.queuedPrompts.push_back(
        {Uuid::random(), std::move(text), std::move(attachments), main_.now()});
    thread.updatedAt = main_.now();
  });
  return {};
}

std::optional<QueuedPrompt> PromptQueue::takeNext(const ThreadExecutionKey& key) {
  const ChatThread* thread = tree_.thread(key);
  if (!thread || thread->queuedPrompts.empty()) return std::nullopt;
  std::optional<QueuedPrompt> prompt;
  tree_.updateThread(key, [&](ChatThread& each) {
    prompt = std::move(each.queuedPrompts.front());
    each.queuedPrompts.erase(each.queuedPrompts.begin());
  });
  return prompt;
}

Result<> PromptQueue::expect(const Uuid& id, const ThreadExecutionKey& key) const {
  const ChatThread* thread = tree_.thread(key);
  if (!thread) return refuseMissingConversation();
  if (std::ranges::find(thread->queuedPrompts, id, &QueuedPrompt::id) !=
      thread->queuedPrompts.end()) {
    return {};
  }
  return refuse("That prompt is not waiting any more.");
}

Result<> PromptQueue::moveQueuedPromptToFront(const Uuid& id, const ThreadExecutionKey& key) {
  if (auto there = expect(id, key); !there) return there;
  if (tree_.thread(key)->queuedPrompts.front().id == id) return {};
  tree_.updateThread(key, [&](ChatThread& each) { each.moveQueuedPromptToFront(id, main_.now()); });
  return {};
}

Result<> PromptQueue::removeQueuedPrompt(const Uuid& id, const ThreadExecutionKey& key) {
  if (auto there = expect(id, key); !there) return there;
  tree_.updateThread(key, [&](ChatThread& each) {
    std::erase_if(each.queuedPrompts, [&](const QueuedPrompt& prompt) { return prompt.id == id; });
    each.updatedAt = main_.now();
  });
  return {};
}

Result<> PromptQueue::clearQueuedPrompts(const ThreadExecutionKey& key) {
  const ChatThread* thread = tree_.thread(key);
  if (!thread) return refuseMissingConversation();
  if (thread->queuedPrompts.empty()) return {};
  tree_.updateThread(key, [&](ChatThread& each) {
    each.queuedPrompts.clear();
    each.updatedAt = main_.now();
  });
  return {};
}

}  // namespace vantrell
