// Takes a turn to a provider: the route, the hand-off capsule for one that does not know the
// conversation, the client, the prompt, and the next provider where an allowance is used up. Main
// queue.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "engine/core/run_lifecycle.h"
#include "engine/projects/project_context_service.h"
#include "engine/providers/router.h"
#include "engine/turns/agent_launcher.h"
#include "engine/turns/turn.h"
#include "engine/turns/turn_outcome.h"

namespace vantrell {

class TurnRunner : public std::enable_shared_from_this<TurnRunner> {
 public:
  struct Dependencies {
    WorkspaceTree& tree;
    ExecutionTable& executions;
    RunLifecycle& runs;
    Router& router;
    UsageTracker& usage;
    ProjectContextService& context;
    ProjectServices& project;
    AgentLauncher& launcher;
    TurnOutcome& outcome;
  };
  explicit TurnRunner(Dependencies dependencies) : core_(dependencies) {}

  /// Routes the turn, whose run has begun, and goes on to its end.
  void routePrompt(const Turn& turn);
  /// Whether the run is still the one that the conversation is at: it may have been stopped, or
  /// have gone with its conversation, during a wait.
  bool isLive(const Turn& turn) const;

 private:
  void takeRoute(Turn turn);
  bool knowsNothing(const Turn& turn, AgentProvider provider) const;
  void deliver(std::string prompt, Turn turn, AgentProvider provider);
  void startAndSend(std::string prompt, Turn turn, AgentProvider provider);
  void performSend(const std::string& prompt, const Turn& turn, AgentProvider provider);
  void turnFailed(const AgentError& error, const Turn& turn, AgentProvider provider);
  void handOff(Turn turn, AgentProvider from, AgentProvider to);
  void buildCapsule(const Turn& turn, AgentProvider from, AgentProvider to,
                    std::function<void(TurnRunner&, std::string capsule)> then);

  const Dependencies core_;
};

}  // namespace vantrell
