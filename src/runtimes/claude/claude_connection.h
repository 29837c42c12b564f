// Claude Code's stream-JSON mode, as the host speaks it. On the client's queue.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "runtimes/claude/claude_events.h"
#include "runtimes/claude/claude_permissions.h"
#include "runtimes/wire/agent_configuration.h"
#include "runtimes/wire/agent_connection.h"
#include "runtimes/wire/pending_requests.h"

namespace vantrell {

class ClaudeConnection final : public AgentConnection {
 public:
  ClaudeConnection(AgentConfiguration configuration, AgentChannel channel)
      : AgentConnection(std::move(channel)), configuration_(std::move(configuration)) {}

  void sendPrompt(std::string prompt, AgentClient::PromptCompletion completion) override;
  void cancel() override;
  void respondToPermission(std::int64_t requestID, std::string optionID) override;
  void handle(JsonObject message, std::size_t bytes) override;
  void handleOtherLine(std::string_view line) override;

 private:
  ProcessOptions processOptions(const std::optional<std::string>& existingSessionID) override;
  AgentError missingProgram() const override { return AgentError::notInstalled("Claude Code"); }
  AgentError notConnected() const override { return disconnected("Claude Code is not connected."); }
  /// A session that cannot be resumed is an error: Claude Code says so and ends.
  void begin(std::optional<std::string> existingSessionID) override;
  void requestControl(JsonObject request, PendingRequests::Completion completion);
  void handleControlResponse(const JsonObject& message);
  void handleControlRequest(const JsonObject& message, std::size_t bytes);
  void handleSystem(const JsonObject& message, std::size_t bytes);
  void handleResult(JsonObject message, std::size_t bytes);
  void gather(ClaudeEvents::Updates updates, std::size_t bytes);

  void interrupt();

  std::string runtimeName() const override { return "Claude Code"; }
  bool isAtWork() const override { return isTurnRunning_ || !controlRequests_.empty(); }
  void release() override { permissions_.clear(); }
  void failPending(const AgentError& error) override;

  const AgentConfiguration configuration_;

  std::string sessionID_;  // of a new session too: Claude Code is told it
  PendingRequests controlRequests_;
  ClaudePermissions permissions_;
  ClaudeEvents turn_;

  AgentClient::PromptCompletion promptCompletion_;  // of the prompt that has no result yet
  bool isTurnRunning_ = false;                      // the prompt's, or one of Claude Code's own
  // An interrupt ends only a turn that runs: the prompt's may not have begun, or one of Claude
  // Code's own stands in front of it.
  bool isPromptCancelled_ = false;
};

}  // namespace vantrell
