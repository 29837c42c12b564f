#include "runtimes/wire/json_rpc_connection.h"

#include "runtimes/wire/json_rpc.h"

namespace vantrell {

void JsonRpcConnection::handle(JsonObject message, std::size_t bytes) {
  const std::string* method = json::text(message, "method");
  if (!method) {
    // Some runtimes leave "jsonrpc" out of what they send, so that cannot tell a message from
    // others.
    const auto id = json::integer(message, "id");
    if (id && !message.find("method")) handleResponse(*id, message);
    return;
  }
  Json* given = message.find("params");
  JsonObject none;
  handleCall(message, *method, given && given->asObject() ? *given->asObject() : none, bytes);
}

void JsonRpcConnection::handleResponse(std::int64_t id, const JsonObject& message) {
  const auto completion = pending_.take(id);
  if (!completion) return;
  handOutUpdates();
  if (const JsonObject* error = json::object(message, "error")) {
    return (*completion)(std::unexpected(errorOfResponse(*error)));
  }
  const JsonObject* result = json::object(message, "result");
  (*completion)(result ? *result : JsonObject{});
}

void JsonRpcConnection::request(std::string_view method, JsonObject params,
                                std::function<void(Answer)> completion) {
  // Nobody is there to answer, and a request that nobody answers would wait for ever.
  if (state_ != State::open) return completion(std::unexpected(disconnected(endText({}))));
  const std::int64_t id = pending_.add(std::move(completion));
  send(jsonrpc::request(id, method, std::move(params)));
}

void JsonRpcConnection::failPending(const AgentError& error) {
  handOutUpdates();
  pending_.finishAll(std::unexpected(error));
}

}  // namespace vantrell
