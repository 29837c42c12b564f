// The manual reset of Codex's allowance: spends one of the credits that the user has earned,
// through the selected conversation's client, and tells what came of it. Main queue.
#pragma once

#include <expected>
#include <memory>
#include <optional>
#include <string>

#include "engine/core/refusal.h"
#include "engine/providers/session_controls.h"
#include "engine/turns/agent_launcher.h"

namespace vantrell {

/// What to tell the user of a reset's outcome, which is a word of the runtime, or of its failure;
/// absent where the allowance is fresh now.
std::optional<std::string> usageResetMessage(const std::expected<std::string, AgentError>& outcome);

class UsageReset : public std::enable_shared_from_this<UsageReset> {
 public:
  UsageReset(ExecutionTable& executions, UsageTracker& usage, SessionControls& controls,
             AgentLauncher& launcher);

  /// Only where Codex is the provider of the conversation's session controls, a credit is known to
  /// be there and no reset runs. A client is started where none is there.
  Result<> resetSessionUsage(const ThreadExecutionKey& key);
  bool usageResetInProgress() const;

 private:
  /// A reset under way. One whose client is still starting ends with that start, whatever ends it.
  struct Reset {
    ThreadExecutionKey key;
    int stopCount = 0;  // of the conversation when the start began
    bool isConsuming = false;
  };
  void consume(const std::shared_ptr<AgentClient>& client, const ThreadExecutionKey& key);

  ExecutionTable& executions_;
  UsageTracker& usage_;
  SessionControls& controls_;
  AgentLauncher& launcher_;
  std::optional<Reset> reset_;
};

}  // namespace vantrell
