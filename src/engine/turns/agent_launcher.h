// Brings a provider's client up for a conversation: two attempts of 30 seconds, and the callbacks
// that tie the client to the engine. Main queue.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "engine/core/engine_core.h"
#include "engine/providers/model_catalog.h"
#include "engine/turns/approvals.h"
#include "engine/turns/session_intake.h"
#include "engine/turns/turn_failures.h"

namespace vantrell {

/// Writes down which provider serves the run, with the model and effort chosen for it in the
/// thread.
void noteProvider(RunRecord& run, AgentProvider provider, const ChatThread& thread);

class AgentLauncher : public std::enable_shared_from_this<AgentLauncher> {
 public:
  AgentLauncher(EngineCore& core, SessionIntake& intake, Approvals& approvals,
                TurnFailures& failures, ProviderSetup& setup, ModelCatalog& catalog,
                UsageTracker& usage);

  /// Makes and starts a client for the run (absent: for no run); `afterReady` follows when its
  /// session is open. Every failure ends the run with its text.
  void startClient(AgentProvider provider, const ThreadExecutionKey& key,
                   const std::optional<Uuid>& runID, std::function<void()> afterReady,
                   int startupAttempt = 1);

  static constexpr std::chrono::seconds connectTimeout{30};
  static constexpr std::chrono::milliseconds pauseBeforeRetry{500};

 private:
  struct Attempt {
    AgentProvider provider;
    ThreadExecutionKey key;
    std::optional<Uuid> runID;
    int number;
    std::function<void()> afterReady;
  };
  using StartResult = std::expected<AgentStartResult, AgentError>;

  void attach(const std::shared_ptr<AgentClient>& client, const Attempt& attempt);
  void setCallbacks(const std::shared_ptr<AgentClient>& client, const ThreadExecutionKey& key);
  void startCompleted(const std::shared_ptr<AgentClient>& client, const Attempt& attempt,
                      StartResult result);
  void forgetLostSession(const Attempt& attempt, const std::string& description);
  void watchdogFired(const std::shared_ptr<AgentClient>& client, const Attempt& attempt);
  void terminated(AgentProvider provider, const std::string& text, const ThreadExecutionKey& key,
                  ThreadExecutionRuntime& execution);

  MainQueue& main_;
  WorkspaceTree& tree_;
  ExecutionTable& executions_;
  SessionIntake& intake_;
  Approvals& approvals_;
  TurnFailures& failures_;
  ProviderSetup& setup_;
  ModelCatalog& catalog_;
  UsageTracker& usage_;
};

}  // namespace vantrell
