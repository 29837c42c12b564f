// The dialect of "codex app-server": JSON-RPC 2.0 in both directions. A conversation is a thread, a
// prompt is a turn, the work of a turn arrives as items, and approvals are requests of the server.
// On the client's queue.
#pragma once

#include <expected>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>

#include "runtimes/codex/codex_approvals.h"
#include "runtimes/codex/codex_turns.h"
#include "runtimes/codex/codex_usage.h"
#include "runtimes/wire/agent_configuration.h"
#include "runtimes/wire/json_rpc_connection.h"

namespace vantrell {

class CodexConnection final : public JsonRpcConnection {
 public:
  CodexConnection(AgentConfiguration configuration, AgentChannel channel)
      : JsonRpcConnection(std::move(channel)), configuration_(std::move(configuration)) {}

  void sendPrompt(std::string prompt, AgentClient::PromptCompletion completion) override;
  void cancel() override;
  void respondToPermission(std::int64_t requestID, std::string optionID) override;

  /// In the place of start(), for a few requests without a thread. `version` is how the client
  /// describes itself.
  void open(std::string_view version, PendingRequests::Completion completion);
  using JsonRpcConnection::request;

  /// Asks for the allowance, which comes as an event. A failure is not told.
  void refreshUsage();
  /// Spends a reset credit; completes with the runtime's word for the outcome.
  void consumeUsageReset(std::function<void(std::expected<std::string, AgentError>)> completion);

 private:
  ProcessOptions processOptions(const std::optional<std::string>&) override;
  AgentError missingProgram() const override {
    return systemFailure("The Codex executable is not installed.");
  }
  void begin(std::optional<std::string> existingSessionID) override;
  void introduce(std::string_view version, PendingRequests::Completion completion);
  /// Resumes the thread, or starts a new one.
  void openThread(const std::optional<std::string>& existingSessionID);
  void interrupt(const std::string& turnId);

  void handleCall(const JsonObject& message, const std::string& method, JsonObject& params,
                  std::size_t bytes) override;
  void handleDelta(JsonObject& params, bool isReasoning, std::size_t bytes);
  void handleItem(const JsonObject& params, bool isCompleted, std::size_t bytes);
  /// The patch of an open item has grown: a question about it shows all of it.
  void handlePatchUpdated(const JsonObject& params);
  void handleError(const JsonObject& params);
  void handleTurnStarted(const JsonObject& params);
  void handleTurnCompleted(const JsonObject& params);
  void handleRequest(const Json& id, const std::string& method, const JsonObject& params,
                     std::size_t bytes);
  void handleResolved(const JsonObject& params);
  void keepForApproval(const JsonObject& item, bool isCompleted);

  std::string runtimeName() const override { return "Codex"; }
  /// Without a thread there is nothing that Codex would store at its end.
  bool isAtWork() const override { return turns_.isBusy() || !sessionId_; }
  void release() override { pendingApprovals_.clear(); }
  void failPending(const AgentError& error) override;
  AgentError disconnected(std::string text) const override;
  std::string endText(const std::string&) const override { return "Codex disconnected."; }
  AgentError systemFailure(std::string text) const override;
  AgentError errorOfResponse(const JsonObject& error) const override;

  const AgentConfiguration configuration_;

  CodexTurns turns_;
  std::int64_t promptCount_ = 0;
  std::int64_t cancelledPrompts_ = 0;  // those up to this one are to be interrupted once they run
  std::optional<std::string> turnToInterrupt_;             // asked for, not confirmed
  bool isTurnCancelled_ = false;                           // and not at its end yet
  std::unordered_set<std::string> streamedItems_;          // with a delta in this turn
  std::unordered_map<std::string, JsonObject> openItems_;  // that an approval may be about
  std::int64_t nextApprovalID_ = 1;
  std::map<std::int64_t, codex::PendingApproval> pendingApprovals_;
  codex::CodexAllowance allowance_;
  std::optional<std::string> sessionId_;
};

}  // namespace vantrell
