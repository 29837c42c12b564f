// The turns of a thread: who waits for which, and what each was reported to have gone wrong with.
// The answer to "turn/start" and the end of the turn may come in either order. Lives on the
// client's queue; completions are called where the end is found out.
#pragma once

#include <expected>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/values/json.h"
#include "runtimes/wire/agent_client.h"

namespace vantrell {

class CodexTurns {
 public:
  using Result = std::expected<JsonObject, AgentError>;
  using Completion = AgentClient::PromptCompletion;

  // "turn/start" was sent, and answered with an error or with the turn's id.

  void startSent() { ++startsUnderWay_; }
  void startFailed();
  /// Completes at once when the turn has ended already.
  void started(const std::string& turnId, Completion completion);

  /// Kept until the turn ends. That of a turn without a prompt is forgotten.
  void reportError(const std::string& turnId, AgentRuntimeError error);
  /// The turn's dictionary, with its "id" as text and its "status".
  void ended(const std::string& turnId, const JsonObject& turn);

  /// Forgets all, and gives back the completions of the open turns.
  std::vector<Completion> takeAll();

  const std::optional<std::string>& currentTurnID() const { return currentTurnID_; }
  bool isStarting() const { return startsUnderWay_ > 0; }
  /// A turn runs or is being started.
  bool isBusy() const { return isStarting() || !completions_.empty(); }

 private:
  Result resultOf(const std::string& turnId, const JsonObject& turn);
  void forgetUnawaited();

  int startsUnderWay_ = 0;
  std::optional<std::string> currentTurnID_;
  /// A runtime may take a second prompt into the running turn: then two wait for one end.
  std::multimap<std::string, Completion> completions_;
  std::map<std::string, AgentRuntimeError> errors_;
  std::map<std::string, Result> completedBeforeRegistration_;
};

}  // namespace vantrell
