// An agent's questions before it acts: how one reaches the user, how the answer goes back, and the
// guards of the one global permission mode. The program does not judge actions; it passes the
// runtime's question and options through. Main queue.
#pragma once

#include <string>

#include "engine/core/engine_core.h"
#include "engine/imagine/imagine_controller.h"

namespace vantrell {

class Approvals {
 public:
  Approvals(EngineCore& core, ImagineController& imagine);

  /// A question of the conversation's client; it replaces one that is still open.
  void requestArrived(PermissionRequest request, const ThreadExecutionKey& key);

  /// The runtime no longer waits for an answer to this one, which may have been replaced.
  void requestWithdrawn(std::int64_t requestID, const ThreadExecutionKey& key);

  /// Stops the selected conversation's task. Set once, by the owner of both desks.
  std::function<void()> stopTask;

  // The rest acts on the selected conversation, or on the media generator while its question is the
  // one that is shown: the selection is how the user looks at a question.

  /// Who chose the answer: Full Access always takes a person at this machine.
  enum class Answerer { person, standingOrder };
  /// Sends the option, also one that the question does not list. Does nothing without a question.
  void respondToPermission(const std::string& optionID, Answerer answerer = Answerer::person);
  /// Answers with the first option that rejects, or stops the task when the runtime offers no way
  /// to say no.
  void rejectPermission();
  /// No turn runs and no question is open: what shapes a session may change.
  bool canChangePermissionMode() const;
  /// A change starts a new client with the next turn, in the stored session. Ignored when it may
  /// not change or does not differ.
  void setPermissionMode(GrokPermissionMode mode);
  /// Planning never begins with full access: that falls back to asking.
  void setWorkflowMode(TaskWorkflowMode mode);

 private:
  MainQueue& main_;
  Settings& settings_;
  WorkspaceTree& tree_;
  Selection& selection_;
  ExecutionTable& executions_;
  ImagineController& imagine_;
  const EnginePorts& ports_;
};

}  // namespace vantrell
