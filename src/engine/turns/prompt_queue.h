// The prompts that wait in each conversation: they are kept with it, survive a restart, and go out
// one after each turn that went well, or when the user says so. Main queue.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "engine/core/engine_core.h"

namespace vantrell {

class PromptQueue {
 public:
  explicit PromptQueue(EngineCore& core);

  /// Adds a prompt at the end.
  void enqueuePrompt(std::string text, std::vector<ChatAttachment> attachments,
                     const ThreadExecutionKey& key);
  /// Sends the first prompt. Does nothing while the conversation is busy or none waits.
  void runNextQueuedPrompt(const ThreadExecutionKey& key);
  /// The same for the selected conversation.
  void runNextQueuedPrompt();

  // The selected conversation's; an unknown id changes nothing.

  void moveQueuedPromptToFront(const Uuid& id);
  void removeQueuedPrompt(const Uuid& id);
  void clearQueuedPrompts();

  /// Starts a turn. Set once, by the owner of both desks.
  std::function<void(std::string text, std::vector<ChatAttachment>, const ThreadExecutionKey&)>
      sendNow;

 private:
  /// Removes those of the selected conversation that are meant.
  void removeWhere(const std::function<bool(const QueuedPrompt&)>& isMeant);

  MainQueue& main_;
  WorkspaceTree& tree_;
  Selection& selection_;
  ExecutionTable& executions_;
};

}  // namespace vantrell
