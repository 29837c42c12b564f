// Entry point of the composer: a prompt is answered, queued, or becomes the run of a turn, which
// TurnRunner takes on; and the user's way to end one. The steps up to there stand in one function
// each, in their fixed order. Main queue.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "engine/core/refusal.h"
#include "engine/core/run_lifecycle.h"
#include "engine/core/settings.h"
#include "engine/projects/hook_runner.h"
#include "engine/projects/project_context_service.h"
#include "engine/projects/task_safety.h"
#include "engine/turns/prompt_queue.h"
#include "engine/turns/session_status_service.h"
#include "engine/turns/turn_runner.h"

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
    MainQueue& main;
    const Settings& settings;
    WorkspaceTree& tree;
    ExecutionTable& executions;
    RunLifecycle& runs;
    EngineEvents& events;
    SessionStatusService& status;
    PromptQueue& queue;
    ProjectContextService& context;
    HookRunner& hooks;
    TaskSafety& safety;
    TurnRunner& turns;
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
  struct Prompt {
    ThreadExecutionKey key;
    std::string text;
    std::vector<ChatAttachment> attachments;
    bool clientWasReady = false;
    int stopCount = 0;
  };
  bool wasStopped(const Prompt& prompt) const;
  void takeCheckpoint(const Prompt& prompt);
  void runHooks(const Prompt& prompt);
  void beginRun(const Prompt& prompt);

  const Dependencies core_;
  const PromptGate* gate_ = nullptr;
};

}  // namespace vantrell
