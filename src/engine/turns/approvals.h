// An agent's questions before it acts: how the answer goes back, and the guards of the one global
// permission mode. The program does not judge actions; it passes the runtime's question and options
// through. Main queue.
#pragma once

#include <cstdint>
#include <string>

#include "engine/core/refusal.h"
#include "engine/core/run_lifecycle.h"
#include "engine/core/settings.h"
#include "engine/imagine/imagine_controller.h"

namespace vantrell {

/// The option by which a refusal answers: the first that rejects; null where the runtime offers
/// none. A front end shows this one.
const PermissionOption* rejectingOption(const PermissionRequest& request);

class Approvals {
 public:
  Approvals(Settings& settings, ExecutionTable& executions, RunLifecycle& runs,
            ImagineController& imagine);

  /// The conversation's client has opened a question.
  void questionOpened(const ThreadExecutionKey& key);

  /// Who chose the answer: Full Access always takes a person at this machine.
  enum class Answerer { person, standingOrder };
  /// Sends the option, also one that the question does not list. Refused where that question is not
  /// open any more: it ends with its client and with its turn.
  Result<> respondToPermission(const ThreadExecutionKey& key, std::int64_t requestID,
                               const std::string& optionID, Answerer answerer = Answerer::person);
  /// Answers with rejectingOption(), or stops the task when there is none.
  Result<> rejectPermission(const ThreadExecutionKey& key, std::int64_t requestID);
  /// The same for the question of the media generator, which belongs to no conversation.
  Result<> respondToImaginePermission(std::int64_t requestID, const std::string& optionID,
                                      Answerer answerer = Answerer::person);
  Result<> rejectImaginePermission(std::int64_t requestID);

  // The modes hold for all conversations. They may change while no turn of the conversation that
  // the user looks at (nullopt: none) runs and no question is open there.

  bool canChangePermissionMode(const std::optional<ThreadExecutionKey>& selected) const {
    return executions_.canChangeSession(selected);
  }
  /// The next turn of each conversation starts a new client, in the stored session; clients that do
  /// nothing end at once.
  Result<> setPermissionMode(GrokPermissionMode mode,
                             const std::optional<ThreadExecutionKey>& selected);
  /// Planning never begins with full access: that falls back to asking.
  Result<> setWorkflowMode(TaskWorkflowMode mode,
                           const std::optional<ThreadExecutionKey>& selected);

 private:
  void noteAlwaysApprove(const PermissionRequest& request, const std::string& optionID,
                         Answerer answerer, const std::optional<ThreadExecutionKey>& key);

  Settings& settings_;
  ExecutionTable& executions_;
  RunLifecycle& runs_;
  ImagineController& imagine_;
};

}  // namespace vantrell
