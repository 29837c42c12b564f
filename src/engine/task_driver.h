// The composer's way in: a prompt is answered, queued, or becomes the run of a turn, which
// TurnDelivery takes on; and the user's way to end one. The steps up to there stand in one function
// each, in their fixed order. Main queue.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "engine/engine_core.h"
#include "engine/hook_desk.h"
#include "engine/project_context_desk.h"
#include "engine/prompt_queue.h"
#include "engine/status_desk.h"
#include "engine/turn_delivery.h"

namespace vantrell {

class TaskDriver : public std::enable_shared_from_this<TaskDriver> {
 public:
  TaskDriver(EngineCore& core, StatusDesk& status, PromptQueue& queue, ProjectContextDesk& context,
             HookDesk& hooks, TurnDelivery& delivery);

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
  StatusDesk& status_;
  PromptQueue& queue_;
  ProjectContextDesk& context_;
  HookDesk& hooks_;
  TurnDelivery& delivery_;
  const EnginePorts& ports_;
};

}  // namespace vantrell
