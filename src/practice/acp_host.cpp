#include "practice/acp_host.h"

#include <unistd.h>
#include <utility>

#include "platform/text/text.h"

namespace vantrell::practice {

void AcpHost::receive(std::string_view line) {
  if (text::trimmed(line).empty()) return;
  auto parsed = json::parse(line);
  if (!parsed) {
    answer(Json(), std::unexpected(RpcError{RpcError::parseError,
                                            "This line is not JSON: " + parsed.error().message}));
    return;
  }
  const auto* message = parsed->asObject();
  if (!message) {
    answer(Json(),
           std::unexpected(RpcError{RpcError::invalidRequest, "A message must be a JSON object."}));
    return;
  }
  const auto* id = message->find("id");
  const auto* method = json::text(*message, "method");
  if (!method) {
    if (id) handleResponse(*id, *message);
    return;
  }
  const auto* given = json::object(*message, "params");
  JsonObject params = given ? *given : JsonObject();
  if (!id) {
    if (onNotification) onNotification(*method, params);
  } else if (onRequest) {
    onRequest(*method, params, [this, id = *id](const RpcAnswer& result) { answer(id, result); });
  }
}

void AcpHost::handleResponse(const Json& id, const JsonObject& message) {
  const auto* number = id.asInteger();
  if (!number) return;
  auto found = pending_.find(*number);
  if (found == pending_.end()) return;  // nothing waits for it
  auto completion = std::move(found->second);
  pending_.erase(found);
  if (const auto* error = json::object(message, "error")) {
    auto code = json::integer(*error, "code").value_or(RpcError::internalError);
    completion(std::unexpected(
        RpcError{static_cast<int>(code), json::textOr(*error, "message", "unknown error")}));
    return;
  }
  const auto* result = json::object(message, "result");
  completion(result ? *result : JsonObject());
}

void AcpHost::notify(std::string_view method, JsonObject params, Work whenWritten) {
  send(JsonObject{{"jsonrpc", "2.0"}, {"method", method}, {"params", std::move(params)}},
       std::move(whenWritten));
}

void AcpHost::request(std::string_view method, JsonObject params, Completion completion) {
  auto id = nextId_++;
  if (completion) pending_.emplace(id, std::move(completion));
  send(JsonObject{
      {"jsonrpc", "2.0"}, {"id", id}, {"method", method}, {"params", std::move(params)}});
}

void AcpHost::answer(const Json& id, const RpcAnswer& result) {
  JsonObject message{{"jsonrpc", "2.0"}, {"id", id}};
  if (result) {
    message.set("result", *result);
  } else {
    message.set("error",
                JsonObject{{"code", result.error().code}, {"message", result.error().message}});
  }
  send(message);
}

void AcpHost::send(const JsonObject& message, Work whenWritten) {
  auto line = json::write(message);
  line += '\n';
  output_.write(STDOUT_FILENO, std::move(line), std::move(whenWritten));
}

}  // namespace vantrell::practice
