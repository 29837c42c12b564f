// Takes a turn to a provider: the route, the client, the prompt, and the next provider where an
// allowance is used up. Main queue.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "engine/core/run_lifecycle.h"
#include "engine/providers/router.h"
#include "engine/turns/agent_launcher.h"
#include "engine/turns/turn.h"
#include "engine/turns/turn_outcome.h"
#include "engine/turns/turn_prompts.h"

namespace vantrell {

class TurnRunner : public std::enable_shared_from_this<TurnRunner> {
 public:
  struct Dependencies {
    ExecutionTable& executions;
    RunLifecycle& runs;
    Router& router;
    TurnPrompts& prompts;
    AgentLauncher& launcher;
    TurnOutcome& outcome;
  };
  explicit TurnRunner(Dependencies dependencies) : core_(dependencies) {}

  /// Makes the turn's text out of the user's, routes the turn, whose run has begun, and goes on to
  /// its end.
  void run(Turn turn, std::string text, std::vector<ChatAttachment> attachments);

 private:
  /// Whether the run is still the one that the conversation is at: it may have been stopped, or
  /// have gone with its conversation, during a wait.
  bool isLive(const Turn& turn) const;
  void takeRoute(const Turn& turn);
  void deliver(std::string prompt, Turn turn, AgentProvider provider);
  void startAndSend(std::string prompt, Turn turn, AgentProvider provider);
  void performSend(const std::string& prompt, const Turn& turn, AgentProvider provider);
  void turnFailed(const AgentError& error, const Turn& turn, AgentProvider provider);
  void handOff(const Turn& turn, AgentProvider from, AgentProvider to);

  const Dependencies core_;
};

}  // namespace vantrell
