// Takes a turn to a provider: the route, the capsule for one who is new to the conversation, the
// client, the prompt, and the next provider where an allowance is used up. Main queue.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "engine/client_starter.h"
#include "engine/engine_core.h"
#include "engine/project_context_desk.h"
#include "engine/router.h"
#include "engine/turn.h"
#include "engine/turn_ends.h"
#include "engine/turn_failures.h"
#include "engine/usage_desk.h"

namespace vantrell {

class TurnDelivery : public std::enable_shared_from_this<TurnDelivery> {
 public:
  TurnDelivery(EngineCore& core, Router& router, ProjectContextDesk& context, UsageDesk& usage,
               ClientStarter& starter, TurnFailures& failures, TurnEnds& ends);

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
                    std::function<void(TurnDelivery&, std::string capsule)> then);

  MainQueue& main_;
  WorkspaceTree& tree_;
  ExecutionTable& executions_;
  Router& router_;
  ProjectContextDesk& context_;
  UsageDesk& usage_;
  ClientStarter& starter_;
  TurnFailures& failures_;
  TurnEnds& ends_;
  const EnginePorts& ports_;
};

}  // namespace vantrell
