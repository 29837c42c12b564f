// The Agent Client Protocol, as the host speaks it. On the client's queue.
#pragma once

#include <memory>
#include <optional>
#include <set>
#include <string>

#include "runtimes/acp/acp_configuration.h"
#include "runtimes/acp/acp_quirks.h"
#include "runtimes/acp/update_completer.h"
#include "runtimes/wire/json_rpc_connection.h"

namespace vantrell {

class ACPHostServices;

class ACPConnection final : public JsonRpcConnection {
 public:
  /// `host` may be null: then every host service counts as unsupported.
  ACPConnection(ACPConfiguration configuration, AgentChannel channel,
                std::unique_ptr<ACPHostServices> host);
  ~ACPConnection() override;

  void sendPrompt(std::string prompt, AgentClient::PromptCompletion completion) override;
  void cancel() override;
  void respondToPermission(std::int64_t requestID, std::string optionID) override;

 private:
  ProcessOptions processOptions(const std::optional<std::string>&) override;
  AgentError missingProgram() const override {
    return AgentError::notInstalled(configuration_.runtimeName);
  }
  void begin(std::optional<std::string> existingSessionID) override;
  void loadSession(const std::string& sessionId);
  void newSession();
  /// Applies the mode and the model that were chosen, and finishes the start.
  void sessionOpened(AgentStartResult result);
  /// Sets one option of the session.
  void setOption(const AgentStartResult& session, std::string_view option, std::string value,
                 PendingRequests::Completion completion);
  /// Lets the session go on under a setting that was not chosen, and says so.
  void addNotice(AgentStartResult& result, std::string notice);
  void applyMode(std::vector<std::string_view> values, AgentStartResult result);
  void applyModel(AgentStartResult result);
  void publishModelOptions(const JsonObject& result);
  /// Hands on the answer to a prompt, once the program's own records of the turn are complete.
  void finishTurn(Answer answer, AgentClient::PromptCompletion completion, int looks);

  void handleCall(const JsonObject& message, const std::string& method, JsonObject& params,
                  std::size_t bytes) override;
  void handleRequest(std::int64_t id, const std::string& method, const JsonObject& params,
                     std::size_t bytes);
  void handlePermissionRequest(std::int64_t id, const JsonObject& params, std::size_t bytes);

  std::string runtimeName() const override { return configuration_.runtimeName; }
  bool isAtWork() const override { return isWaiting(); }
  void release() override;
  std::string endText(const std::string&) const override {
    return "The model runtime disconnected.";
  }
  AgentError errorOfResponse(const JsonObject& error) const override;

  const ACPConfiguration configuration_;
  const std::unique_ptr<ACPQuirks> quirks_;
  const std::unique_ptr<ACPHostServices> host_;

  /// JSON-RPC ids of open questions. A runtime may use one id twice; each gets its answer.
  std::multiset<std::int64_t> pendingPermissionIDs_;
  UpdateCompleter updates_;
  int promptsInFlight_ = 0;
  bool isTurnCancelled_ = false;  // and its prompt not answered yet
  std::optional<std::string> sessionId_;
};

}  // namespace vantrell
