// Brings a provider's client up for a conversation, in two attempts of 30 seconds. Main queue.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "engine/core/run_lifecycle.h"
#include "engine/providers/provider_setup.h"
#include "engine/turns/agent_reports.h"
#include "engine/turns/session_intake.h"

namespace vantrell {

class AgentLauncher : public std::enable_shared_from_this<AgentLauncher> {
 public:
  struct Dependencies {
    WorkspaceTree& tree;
    ExecutionTable& executions;
    RunLifecycle& runs;
    ProviderSetup& setup;
    SessionIntake& intake;
    AgentReports& reports;
  };
  explicit AgentLauncher(Dependencies dependencies) : core_(dependencies) {}

  /// Makes and starts a client for the run (nullopt: for no run); `afterReady` follows when its
  /// session is open. Every failure ends the run with its text.
  void startClient(AgentProvider provider, const ThreadExecutionKey& key,
                   const std::optional<Uuid>& runID, std::function<void()> afterReady,
                   int startupAttempt = 1);

  /// Whether the provider's client is there, with the permission mode that is set now: a client
  /// keeps the one that it was started with.
  bool isServing(AgentProvider provider, const ThreadExecutionKey& key) const;

  static constexpr std::chrono::seconds connectTimeout{30};

 private:
  struct Attempt {
    AgentProvider provider;
    ThreadExecutionKey key;
    std::optional<Uuid> runID;
    int number;
    std::function<void()> afterReady;
  };
  void startCompleted(const Attempt& attempt, AgentSession::StartResult result);
  void timedOut(const Attempt& attempt);
  void forgetLostSession(const Attempt& attempt, const std::string& description);

  const Dependencies core_;
};

}  // namespace vantrell
