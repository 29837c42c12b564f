// The Agent Client Protocol, as the host speaks it. On the client's queue.
#pragma once

#include <expected>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "runtimes/acp/acp_client_error.h"
#include "runtimes/acp/acp_configuration.h"
#include "runtimes/agent_connection.h"
#include "runtimes/pending_requests.h"

namespace vantrell {

class ACPHostServices;

class ACPConnection final : public AgentConnection {
 public:
  /// `host` may be null: then every host service counts as unsupported.
  ACPConnection(ACPConfiguration configuration, SerialQueue queue, std::shared_ptr<Mailbox> mailbox,
                AgentEvents events, std::unique_ptr<ACPHostServices> host);
  ~ACPConnection() override;

  void start(std::optional<std::string> existingSessionID,
             AgentClient::StartCompletion completion) override;
  void sendPrompt(std::string prompt, AgentClient::PromptCompletion completion) override;
  void cancel() override;
  void respondToPermission(std::int64_t requestID, std::string optionID) override;
  void stop() override;
  void handle(JsonObject message, std::size_t bytes) override;

  /// The part of start() behind the launch: "initialize", then the session.
  void initialize(std::optional<std::string> existingSessionID,
                  AgentClient::StartCompletion completion);

 private:
  using Answer = std::expected<JsonObject, AgentError>;

  std::optional<ACPClientError> launchRuntime();
  void loadSession(std::string sessionId, AgentClient::StartCompletion completion);
  void newSession(AgentClient::StartCompletion completion);
  void applyRuntimeConfiguration(AgentStartResult result, AgentClient::StartCompletion completion);
  void applyMode(std::string_view mode, AgentStartResult result,
                 AgentClient::StartCompletion completion);
  void applyModel(AgentStartResult result, AgentClient::StartCompletion completion);
  void publishModelOptions(const JsonObject& result);

  void handleResponse(std::int64_t id, const JsonObject& message);
  void handleNotification(std::string_view method, JsonObject& params, std::size_t bytes);
  void handleRequest(std::int64_t id, const std::string& method, const JsonObject& params,
                     std::size_t bytes);
  void handlePermissionRequest(std::int64_t id, const JsonObject& params, std::size_t bytes);
  void ended(ExitStatus status, std::string errorText) override;

  void request(std::string_view method, JsonObject params, std::function<void(Answer)> completion);
  void failPending(const AgentError& error) override;
  bool hasConfigOptions() const;

  const ACPConfiguration configuration_;
  const std::unique_ptr<ACPHostServices> host_;

  PendingRequests<Answer> pending_;              // its completions live no longer than this object
  std::set<std::int64_t> pendingPermissionIDs_;  // JSON-RPC ids of open questions
  int promptsInFlight_ = 0;
  bool isTurnCancelled_ = false;        // and its prompt not answered yet
  bool supportsConfigOptions_ = false;  // known after "initialize"
  bool hasEnded_ = false;               // stopped, or the process died
  std::optional<std::string> sessionId_;
};

}  // namespace vantrell
