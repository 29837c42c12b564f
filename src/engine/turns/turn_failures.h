// The one way in which a turn fails, whoever finds it out: the state of the conversation, the
// message for the user, the run, the transcript, the interface and the paired clients learn of it,
// in this order. Main queue.
#pragma once

#include <optional>
#include <string>

#include "engine/core/engine_core.h"

namespace vantrell {

class TurnFailures {
 public:
  explicit TurnFailures(EngineCore& core);

  struct Failure {
    std::string description;                          // as the state of the connection holds it
    std::string text;                                 // for the user: error message and run
    std::optional<std::string> entry = std::nullopt;  // in the transcript
    bool isActivity = false;                          // the conversation's last sign of life
    bool isToldToClients = true;                      // paired remote clients
  };
  /// Ends the run (if there is one) as failed. The conversation's client stays as it is. The id is
  /// a copy: it may be the live state's own, which is cleared on the way.
  void fail(const ThreadExecutionKey& key, std::optional<Uuid> runID, Failure failure);

  /// What to tell the user for a provider's words.
  std::string advice(const std::string& description, AgentProvider provider) const;

 private:
  MainQueue& main_;
  WorkspaceTree& tree_;
  ExecutionTable& executions_;
  const EnginePorts& ports_;
};

}  // namespace vantrell
