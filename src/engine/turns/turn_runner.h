// Takes a turn to a provider: the route, the capsule for one who is new to the conversation, the
// client, the prompt, and the next provider where an allowance is used up. Main queue.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "engine/core/engine_core.h"
#include "engine/projects/project_context_service.h"
#include "engine/providers/router.h"
#include "engine/providers/usage_tracker.h"
#include "engine/turns/agent_launcher.h"
#include "engine/turns/turn.h"
#include "engine/turns/turn_ends.h"
#include "engine/turns/turn_failures.h"

namespace vantrell {

class TurnRunner : public std::enable_shared_from_this<TurnRunner> {
 public:
  TurnRunner(EngineCore& core, Router& router, ProjectContextService& context, UsageTracker& usage,
             AgentLauncher& starter, TurnFailures& failures, TurnEnds& ends);

  /// Routes the turn, whose run has begun, and goes on to its end.
  void routePrompt(const Turn& turn);
  /// Whether the run is still the one that the conversation is at: it may have been stopped, or
  /// have gone with its conversation, during a wait.
  bool isLive(const Turn& turn) const;

  /// How long the next prompt waits for the end of a turn that was stopped; then its client is
  /// replaced by another in the same session.
  static constexpr std::chrono::seconds stopPatience{10};

 private:
  using PromptResult = std::expected<JsonObject, AgentError>;

  void takeRoute(Turn turn);
  void switchProvider(Turn turn, AgentProvider from, AgentProvider to);
  void deliver(std::string prompt, Turn turn, AgentProvider provider);
  void startAndSend(std::string prompt, Turn turn, AgentProvider provider);
  void sendBehindStoppedTurn(std::string prompt, Turn turn, AgentProvider provider);
  void performSend(const std::string& prompt, const Turn& turn, AgentProvider provider);
  void turnFailed(const AgentError& error, const Turn& turn, AgentProvider provider);
  void handOff(Turn turn, AgentProvider from, AgentProvider to);
  void buildCapsule(const Turn& turn, AgentProvider from, AgentProvider to,
                    std::function<void(TurnRunner&, std::string capsule)> then);

  MainQueue& main_;
  WorkspaceTree& tree_;
  ExecutionTable& executions_;
  Router& router_;
  ProjectContextService& context_;
  UsageTracker& usage_;
  AgentLauncher& starter_;
  TurnFailures& failures_;
  TurnEnds& ends_;
  const EnginePorts& ports_;
};

}  // namespace vantrell
