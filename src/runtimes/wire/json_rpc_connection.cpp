#include "runtimes/wire/json_rpc_connection.h"

#include "platform/values/json_objects.h"

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
  (*completion)(json::objectOrEmpty(message, "result"));
}

void JsonRpcConnection::request(std::string_view method, JsonObject params,
                                PendingRequests::Completion completion) {
  // A request that nothing can answer would wait for ever.
  if (state_ != State::open) return completion(std::unexpected(notConnected()));
  const std::int64_t id = pending_.add(std::move(completion));
  send({{"jsonrpc", "2.0"}, {"id", id}, {"method", method}, {"params", std::move(params)}});
}

void JsonRpcConnection::notify(std::string_view method, std::optional<JsonObject> params) {
  JsonObject message{{"jsonrpc", "2.0"}, {"method", method}};
  if (params) message.set("params", *std::move(params));
  send(message);
}

void JsonRpcConnection::respond(Json id, JsonObject result) {
  send({{"jsonrpc", "2.0"}, {"id", std::move(id)}, {"result", std::move(result)}});
}

void JsonRpcConnection::respondError(Json id, int code, std::string message) {
  send({{"jsonrpc", "2.0"},
        {"id", std::move(id)},
        {"error", JsonObject{{"code", code}, {"message", std::move(message)}}}});
}

void JsonRpcConnection::failPending(const AgentError& error) {
  handOutUpdates();
  pending_.failAll(error);
}

}  // namespace vantrell
