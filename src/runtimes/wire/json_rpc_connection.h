// What the dialects of JSON-RPC 2.0 share: requests, their answers, and telling the messages of the
// runtime apart. On the client's queue.
#pragma once

#include <string>
#include <string_view>

#include "runtimes/wire/agent_connection.h"
#include "runtimes/wire/pending_requests.h"

namespace vantrell {

class JsonRpcConnection : public AgentConnection {
 public:
  void handle(JsonObject message, std::size_t bytes) override;

 protected:
  using AgentConnection::AgentConnection;
  using Answer = PendingRequests::Answer;

  /// A runtime that has not been opened, or is gone, answers at once: as disconnected.
  void request(std::string_view method, JsonObject params, PendingRequests::Completion completion);
  /// Without params it has no "params" at all.
  void notify(std::string_view method, std::optional<JsonObject> params = std::nullopt);
  bool isWaiting() const { return !pending_.empty(); }
  void failPending(const AgentError& error) override;

  // Answers to a request of the runtime, with its id in the form in which it came.
  void respond(Json id, JsonObject result);
  void respondError(Json id, int code, std::string message);
  // Error codes.
  static constexpr int methodNotFound = -32601;
  static constexpr int internalError = -32603;

  /// A request or a notification of the runtime.
  virtual void handleCall(const JsonObject& message, const std::string& method, JsonObject& params,
                          std::size_t bytes) = 0;
  /// What the "error" of a response means.
  virtual AgentError errorOfResponse(const JsonObject& error) const = 0;

 private:
  void handleResponse(std::int64_t id, const JsonObject& message);

  PendingRequests pending_;  // its completions live no longer than this object
};

}  // namespace vantrell
