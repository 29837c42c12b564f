// The composer's way in: a prompt is answered, queued, or becomes the run of a turn, which
// TurnRunner takes on; and the user's way to end one. The steps up to there stand in one function
// each, in their fixed order. Main queue.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "engine/core/engine_core.h"
#include "engine/projects/hook_runner.h"
#include "engine/projects/project_context_service.h"
#include "engine/turns/prompt_queue.h"
#include "engine/turns/session_status_service.h"
#include "engine/turns/turn_runner.h"

namespace vantrell {

class Composer : public std::enable_shared_from_this<Composer> {
 public:
  Composer(EngineCore& core, SessionStatusService& status, PromptQueue& queue,
           ProjectContextService& context, HookRunner& hooks, TurnRunner& delivery);

  /// A workspace is selected and its conversation is not busy.
  bool canSend() const;
  /// A workspace is selected: while a turn runs a prompt is queued.
  bool canSubmitPrompt() const;

  /// What the composer calls: answers a question about the session, queues while the conversation
  /// is busy, else starts a turn. Text of white space alone does nothing.
  void send(std::string_view text, std::vector<ChatAttachment> attachments);
  /// Starts a turn now, whatever the state. The one door to a turn.
  void sendNow(std::string text, std::vector<ChatAttachment> attachments,
               const ThreadExecutionKey& key);
  void sendNow(std::string text, std::vector<ChatAttachment> attachments);
  /// Ends the selected conversation's turn. Its client stays, unless it was still connecting;
  /// nothing queued starts.
  void stopWorking();

 private:
  void beginTurn(const std::string& text, const std::vector<ChatAttachment>& attachments,
                 const ThreadExecutionKey& key, bool clientWasReady, int stopCount);
  void replaceRun(const ThreadExecutionKey& key);

  MainQueue& main_;
  Settings& settings_;
  WorkspaceTree& tree_;
  Selection& selection_;
  ExecutionTable& executions_;
  SessionStatusService& status_;
  PromptQueue& queue_;
  ProjectContextService& context_;
  HookRunner& hooks_;
  TurnRunner& delivery_;
  const EnginePorts& ports_;
};

}  // namespace vantrell
