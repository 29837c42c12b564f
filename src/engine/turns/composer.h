// Entry point of the composer: a prompt is answered, queued, or becomes a turn; and the user's way
// to end one. Main queue.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "engine/core/refusal.h"
#include "engine/core/run_lifecycle.h"
#include "engine/turns/prompt_queue.h"
#include "engine/turns/session_status_service.h"
#include "engine/turns/turn_starter.h"

namespace vantrell {

/// Prompts that must not go out yet, since where they will work is being made.
class PromptGate {
 public:
  virtual ~PromptGate() = default;
  virtual bool isPreparing(const ThreadExecutionKey& key) const = 0;
};

class Composer : public std::enable_shared_from_this<Composer> {
 public:
  struct Dependencies {
    const WorkspaceTree& tree;
    const ExecutionTable& executions;
    RunLifecycle& runs;
    SessionStatusService& status;
    PromptQueue& queue;
    TurnStarter& starter;
  };
  explicit Composer(Dependencies dependencies) : core_(dependencies) {}
  /// Once, by the owner of both; must outlive the composer.
  void setGate(const PromptGate* gate) { gate_ = gate; }

  /// Answers a question about the session, queues while the conversation is busy or its worktree is
  /// being made, else starts a turn. Text of white space alone is refused.
  Result<> send(std::string_view text, std::vector<ChatAttachment> attachments,
                const ThreadExecutionKey& key);
  /// Starts a turn now, whatever the state. Every turn begins here.
  Result<> sendNow(std::string text, std::vector<ChatAttachment> attachments,
                   const ThreadExecutionKey& key);
  /// Sends the first prompt of the queue. Refused while the conversation is busy or none waits.
  Result<> runNextQueuedPrompt(const ThreadExecutionKey& key);
  /// Ends the conversation's turn. Its client stays, unless it was still connecting; nothing queued
  /// starts. Does nothing at rest.
  Result<> stopWorking(const ThreadExecutionKey& key);

 private:
  bool mustWait(const ThreadExecutionKey& key) const {
    return core_.executions.isBusy(key) || (gate_ && gate_->isPreparing(key));
  }

  const Dependencies core_;
  const PromptGate* gate_ = nullptr;
};

}  // namespace vantrell
