// The protocol side of an ACP client: all its state, on the client's queue. ACPClient owns one and
// carries its events to the main queue.
//
// A connection without a process drops what it sends, so that the dispatch can be driven by itself.
#pragma once

#include <expected>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "platform/dispatch.h"
#include "platform/json.h"
#include "runtimes/acp/acp_client_error.h"
#include "runtimes/acp/acp_configuration.h"
#include "runtimes/agent_client.h"
#include "runtimes/json_line_process.h"
#include "runtimes/pending_requests.h"
#include "runtimes/provider_options.h"

namespace vantrell {

class ACPHostServices;

class ACPConnection : public std::enable_shared_from_this<ACPConnection> {
 public:
  /// Called on the client's queue.
  struct Events {
    /// In the order in which they came, as many as one read brought.
    std::function<void(std::vector<JsonObject> updates, std::size_t bytes)> sessionUpdates;
    std::function<void(PermissionRequest, std::size_t bytes)> permissionRequest;
    std::function<void(std::string text)> log;
    std::function<void()> replayStarted;
    std::function<void()> replayFailed;
    std::function<void(std::string text)> unexpectedTermination;
    std::function<void(std::vector<ProviderModelOption>)> modelOptions;
  };  // `bytes` is the length of the message on the wire

  /// The events deliver to the mailbox. `host` may be null: then every host service counts as
  /// unsupported.
  ACPConnection(ACPConfiguration configuration, SerialQueue queue, std::shared_ptr<Mailbox> mailbox,
                Events events, std::unique_ptr<ACPHostServices> host);
  ~ACPConnection();

  // The operations of AgentClient. Completions are called here, on the client's queue.

  void start(std::optional<std::string> existingSessionID, AgentClient::StartCompletion completion);
  void sendPrompt(std::string prompt, AgentClient::PromptCompletion completion);
  void cancel();
  void respondToPermission(std::int64_t requestID, std::string optionID);
  void stop();

  /// The part of start() behind the launch: "initialize", then the session.
  void initialize(std::optional<std::string> existingSessionID,
                  AgentClient::StartCompletion completion);
  /// One message of the runtime; `bytes` is its length on the wire. Session updates are gathered
  /// and handed out by handOutUpdates(), and before anything that comes behind them.
  void handle(JsonObject message, std::size_t bytes);
  void handOutUpdates();

 private:
  using Answer = std::expected<JsonObject, AgentError>;

  std::optional<ACPClientError> launch();
  void loadSession(std::string sessionId, AgentClient::StartCompletion completion);
  void newSession(AgentClient::StartCompletion completion);
  void applyRuntimeConfiguration(AgentStartResult result, AgentClient::StartCompletion completion);
  void applyModel(AgentStartResult result, AgentClient::StartCompletion completion);
  void publishModelOptions(const JsonObject& result);

  void handleResponse(std::int64_t id, const JsonObject& message);
  void handleNotification(std::string_view method, JsonObject& params, std::size_t bytes);
  void handleRequest(std::int64_t id, const std::string& method, const JsonObject& params,
                     std::size_t bytes);
  void handlePermissionRequest(std::int64_t id, const JsonObject& params, std::size_t bytes);
  void ended(ExitStatus status, std::string errorText);

  void request(std::string_view method, JsonObject params, std::function<void(Answer)> completion);
  void send(const JsonObject& message);
  void failPending(const AgentError& error);
  bool hasConfigOptions() const;

  const ACPConfiguration configuration_;
  const SerialQueue queue_;
  const std::shared_ptr<Mailbox> mailbox_;
  const Events events_;
  const std::unique_ptr<ACPHostServices> host_;

  std::unique_ptr<JsonLineProcess> process_;
  PendingRequests<Answer> pending_;              // its completions live no longer than this object
  std::set<std::int64_t> pendingPermissionIDs_;  // JSON-RPC ids of open questions
  bool supportsConfigOptions_ = false;           // known after "initialize"
  bool hasEnded_ = false;                        // stopped, or the process died
  std::optional<std::string> sessionId_;
  std::vector<JsonObject> updates_;  // gathered, not handed out yet
  std::size_t updateBytes_ = 0;
};

}  // namespace vantrell
