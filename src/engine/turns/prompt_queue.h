// The prompts that wait in each conversation: they are kept with it, survive a restart, and go out
// one after each turn that went well, or when the user says so. Main queue.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "engine/core/refusal.h"
#include "engine/core/workspace_tree.h"

namespace vantrell {

class PromptQueue {
 public:
  PromptQueue(MainQueue& main, WorkspaceTree& tree) : main_(main), tree_(tree) {}

  /// Adds a prompt at the end.
  Result<> enqueuePrompt(std::string text, std::vector<ChatAttachment> attachments,
                         const ThreadExecutionKey& key);
  /// Takes the first prompt out, for the caller to send in the same step: the store then has it in
  /// one of the two places at every moment. Nullopt when none waits.
  std::optional<QueuedPrompt> takeNext(const ThreadExecutionKey& key);

  Result<> moveQueuedPromptToFront(const Uuid& id, const ThreadExecutionKey& key);
  Result<> removeQueuedPrompt(const Uuid& id, const ThreadExecutionKey& key);
  Result<> clearQueuedPrompts(const ThreadExecutionKey& key);

 private:
  /// Refuses where the conversation or the prompt has gone.
  Result<> expect(const Uuid& id, const ThreadExecutionKey& key) const;

  MainQueue& main_;
  WorkspaceTree& tree_;
};

}  // namespace vantrell
