#include "runtimes/codex/codex_turns.h"

#include <fmt/format.h>

#include "platform/values/json_objects.h"
#include "runtimes/codex/codex_messages.h"

namespace vantrell {

void CodexTurns::startFailed() {
  --startsUnderWay_;
  forgetUnawaited();
}

void CodexTurns::started(const std::string& turnId, Completion completion) {
  --startsUnderWay_;
  auto early = completedBeforeRegistration_.extract(turnId);
  if (early.empty()) {
    currentTurnID_ = turnId;
    completions_.emplace(turnId, std::move(completion));
    return;
  }
  forgetUnawaited();
  completion(std::move(early.mapped()));
}

void CodexTurns::reportError(const std::string& turnId, AgentRuntimeError error) {
  if (isStarting() || completions_.contains(turnId)) {
    errors_.insert_or_assign(turnId, std::move(error));
  }
}

void CodexTurns::ended(const std::string& turnId, const JsonObject& turn) {
  // Agents that this one has set to work have turns of their own.
  if (currentTurnID_ == turnId) currentTurnID_.reset();
  Result result = resultOf(turnId, turn);

  std::vector<Completion> waiting;
  for (auto node = completions_.extract(turnId); !node.empty();
       node = completions_.extract(turnId)) {
    waiting.push_back(std::move(node.mapped()));
  }
  if (waiting.empty() && isStarting()) completedBeforeRegistration_.emplace(turnId, result);
  forgetUnawaited();
  for (const auto& completion : waiting) completion(result);
}

CodexTurns::Result CodexTurns::resultOf(const std::string& turnId, const JsonObject& turn) {
  const std::string status = json::textOr(turn, "status", "failed");
  auto reported = errors_.extract(turnId);
  if (status == "completed") return turn;
  if (!reported.empty()) return std::unexpected(AgentError(std::move(reported.mapped())));
  return std::unexpected(AgentError(codex::runtimeError(json::objectOrEmpty(turn, "error"),
                                                        fmt::format("Codex turn {}.", status))));
}

std::vector<CodexTurns::Completion> CodexTurns::takeAll() {
  std::vector<Completion> waiting;
  for (auto& [id, completion] : std::exchange(completions_, {})) {
    waiting.push_back(std::move(completion));
  }
  currentTurnID_.reset();
  errors_.clear();
  completedBeforeRegistration_.clear();
  return waiting;
}

void CodexTurns::forgetUnawaited() {
  if (isStarting()) return;
  completedBeforeRegistration_.clear();
  if (completions_.empty()) errors_.clear();
}

}  // namespace vantrell
