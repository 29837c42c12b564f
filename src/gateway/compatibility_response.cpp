#include "gateway/compatibility_response.h"

#include <algorithm>
#include <fmt/format.h>
#include <limits>
#include <optional>

#include "platform/text/text.h"
#include "platform/values/json.h"
#include "platform/values/uuid.h"

namespace vantrell {

namespace {

/// "chatcmpl_", "msg_" and so on, and a new id.
std::string newID(std::string prefix) {
  auto id = text::lowercased(Uuid::random().text());
  std::erase(id, '-');
  return prefix += id;
}

struct ToolCall {
  std::string id;
  std::string name;
  std::string arguments;  // JSON, as far as the model got it right
};

/// What the runtime has answered, as far as any format needs it.
struct Completion {
  JsonObject whole;
  JsonObject message;
  std::optional<std::string> finishReason;
  std::string text;
  std::vector<ToolCall> toolCalls;
  std::int64_t inputTokens = 0;
  std::int64_t outputTokens = 0;
};

std::optional<ToolCall> toolCallFrom(const Json& value) {
  const auto* call = value.asObject();
  const auto* function = call ? json::object(*call, "function") : nullptr;
  if (!function) return std::nullopt;
  const auto* arguments = function->find("arguments");
  const auto* text = arguments ? arguments->asText() : nullptr;
  const auto* id = json::text(*call, "id");
  return ToolCall{id && !id->empty() ? *id : newID("call_"), json::textOr(*function, "name", ""),
                  text        ? *text
                  : arguments ? json::write(*arguments)
                              : "{}"};
}

std::optional<Completion> completionFrom(std::string_view body) {
  auto whole = json::parseObject(body);
  const auto* choices = whole ? json::array(*whole, "choices") : nullptr;
  const auto* choice = choices && !choices->empty() ? choices->front().asObject() : nullptr;
  const auto* message = choice ? json::object(*choice, "message") : nullptr;
  if (!message) return std::nullopt;
  Completion completion{.message = *message, .text = json::textOr(*message, "content", "")};
  if (const auto* reason = json::text(*choice, "finish_reason")) completion.finishReason = *reason;
  if (const auto* calls = json::array(*message, "tool_calls")) {
    for (const auto& call : *calls) {
      if (auto read = toolCallFrom(call)) completion.toolCalls.push_back(std::move(*read));
    }
  }
  if (const auto* usage = json::object(*whole, "usage")) {
    const auto count = [&](std::string_view key) {
      return std::max<std::int64_t>(json::integer(*usage, key).value_or(0), 0);
    };
    completion.inputTokens = count("prompt_tokens");
    completion.outputTokens = count("completion_tokens");
  }
  completion.whole = std::move(*whole);
  return completion;
}

GatewayResponse jsonBody(const JsonObject& object) {
  return {.body = json::write(object)};
}

/// One event of a stream; the vendors that name their events repeat the type in front.
void appendEvent(std::string& out, const JsonObject& data, bool isNamed) {
  if (isNamed) out += "event: " + json::textOr(data, "type", "") + "\n";
  out += "data: ";
  json::appendTo(out, data);
  out += "\n\n";
}

GatewayResponse eventStream(std::string body) {
  return {.body = std::move(body), .contentType = "text/event-stream; charset=utf-8"};
}

// Chat completions.

/// Readers of streams put the calls of tools together by their index.
Json withIndexes(const Json::Array& toolCalls) {
  Json::Array indexed = toolCalls;
  std::int64_t index = 0;
  for (auto& call : indexed) {
    if (auto* object = call.asObject(); object && !object->find("index")) {
      object->set("index", index);
    }
    ++index;
  }
  return indexed;
}

GatewayResponse chatResponse(Completion completion, const PreparedCompatibilityRequest& prepared,
                             std::int64_t now) {
  auto& whole = completion.whole;
  const auto id = json::textOr(whole, "id", "");
  const auto created = json::integer(whole, "created").value_or(now);
  const std::string givenID = id.empty() ? newID("chatcmpl_") : id;
  if (!prepared.stream) {
    whole.set("id", givenID);
    whole.set("object", "chat.completion");
    whole.set("created", created);
    whole.set("model", prepared.requestedModel);
    return jsonBody(whole);
  }
  auto& delta = completion.message;
  delta.set("role", "assistant");
  if (const auto* calls = json::array(delta, "tool_calls")) {
    delta.set("tool_calls", withIndexes(*calls));
  }
  std::string body;
  appendEvent(body,
              {{"id", givenID},
               {"object", "chat.completion.chunk"},
               {"created", created},
               {"model", prepared.requestedModel},
               {"choices", Json::Array{JsonObject{
                               {"index", 0},
                               {"delta", std::move(delta)},
                               {"finish_reason", completion.finishReason.value_or("stop")}}}}},
              false);
  return eventStream(body + "data: [DONE]\n\n");
}

// Responses.

Json::Array outputItems(const Completion& completion, const std::string& messageID) {
  Json::Array items;
  if (!completion.text.empty()) {
    items.push_back(
        JsonObject{{"id", messageID},
                   {"type", "message"},
                   {"status", "completed"},
                   {"role", "assistant"},
                   {"content", Json::Array{JsonObject{{"type", "output_text"},
                                                      {"text", completion.text},
                                                      {"annotations", Json::Array{}}}}}});
  }
  for (const auto& call : completion.toolCalls) {
    items.push_back(JsonObject{{"id", call.id},
                               {"type", "function_call"},
                               {"status", "completed"},
                               {"call_id", call.id},
                               {"name", call.name},
                               {"arguments", call.arguments}});
  }
  return items;
}

/// A runtime may say anything.
std::int64_t totalTokens(const Completion& completion) {
  std::int64_t sum = 0;
  const bool isTooMuch =
      __builtin_add_overflow(completion.inputTokens, completion.outputTokens, &sum);
  return isTooMuch ? std::numeric_limits<std::int64_t>::max() : sum;
}

GatewayResponse responsesResponse(const Completion& completion,
                                  const PreparedCompatibilityRequest& prepared, std::int64_t now) {
  const auto id = newID("resp_");
  const auto messageID = newID("msg_");
  JsonObject whole{{"id", id},
                   {"object", "response"},
                   {"created_at", now},
                   {"status", "completed"},
                   {"model", prepared.requestedModel},
                   {"output", outputItems(completion, messageID)},
                   {"parallel_tool_calls", true},
                   {"usage", JsonObject{{"input_tokens", completion.inputTokens},
                                        {"output_tokens", completion.outputTokens},
                                        {"total_tokens", totalTokens(completion)}}}};
  if (!prepared.stream) return jsonBody(whole);
  std::string body;
  appendEvent(body,
              {{"type", "response.created"},
               {"sequence_number", 0},
               {"response", JsonObject{{"id", id},
                                       {"object", "response"},
                                       {"status", "in_progress"},
                                       {"model", prepared.requestedModel}}}},
              true);
  appendEvent(body,
              {{"type", "response.output_text.delta"},
               {"sequence_number", 1},
               {"item_id", messageID},
               {"output_index", 0},
               {"content_index", 0},
               {"delta", completion.text}},
              true);
  appendEvent(
      body,
      {{"type", "response.completed"}, {"sequence_number", 2}, {"response", std::move(whole)}},
      true);
  return eventStream(std::move(body));
}

// Messages.

Json::Array contentBlocks(const Completion& completion) {
  Json::Array blocks;
  if (!completion.text.empty()) {
    blocks.push_back(JsonObject{{"type", "text"}, {"text", completion.text}});
  }
  for (const auto& call : completion.toolCalls) {
    blocks.push_back(
        JsonObject{{"type", "tool_use"},
                   {"id", call.id},
                   {"name", call.name},
                   {"input", json::parseObject(call.arguments).value_or(JsonObject{})}});
  }
  return blocks;
}

void appendBlockEvents(std::string& body, const Json& block, std::int64_t index) {
  const auto* text = json::text(*block.asObject(), "text");
  const Json start = text ? Json(JsonObject{{"type", "text"}, {"text", ""}}) : block;
  appendEvent(body, {{"type", "content_block_start"}, {"index", index}, {"content_block", start}},
              true);
  if (text) {
    appendEvent(body,
                {{"type", "content_block_delta"},
                 {"index", index},
                 {"delta", JsonObject{{"type", "text_delta"}, {"text", *text}}}},
                true);
  }
  appendEvent(body, {{"type", "content_block_stop"}, {"index", index}}, true);
}

GatewayResponse messagesResponse(const Completion& completion,
                                 const PreparedCompatibilityRequest& prepared) {
  const auto blocks = contentBlocks(completion);
  const std::string stopReason = completion.toolCalls.empty() ? "end_turn" : "tool_use";
  const auto message = [&](Json::Array content, Json reason, std::int64_t outputTokens) {
    return JsonObject{{"id", newID("msg_")},
                      {"type", "message"},
                      {"role", "assistant"},
                      {"model", prepared.requestedModel},
                      {"content", std::move(content)},
                      {"stop_reason", std::move(reason)},
                      {"stop_sequence", nullptr},
                      {"usage", JsonObject{{"input_tokens", completion.inputTokens},
                                           {"output_tokens", outputTokens}}}};
  };
  if (!prepared.stream) return jsonBody(message(blocks, stopReason, completion.outputTokens));
  std::string body;
  appendEvent(body, {{"type", "message_start"}, {"message", message({}, nullptr, 0)}}, true);
  std::int64_t index = 0;
  for (const auto& block : blocks) appendBlockEvents(body, block, index++);
  appendEvent(body,
              {{"type", "message_delta"},
               {"delta", JsonObject{{"stop_reason", stopReason}, {"stop_sequence", nullptr}}},
               {"usage", JsonObject{{"output_tokens", completion.outputTokens}}}},
              true);
  appendEvent(body, {{"type", "message_stop"}}, true);
  return eventStream(std::move(body));
}

/// The runtime's own words for a failure.
std::optional<std::string> failureIn(std::string_view body) {
  const auto object = json::parseObject(body);
  if (!object) return std::nullopt;
  const auto* text = json::text(*object, "error");
  if (const auto* error = json::object(*object, "error")) text = json::text(*error, "message");
  return text ? std::optional(*text) : std::nullopt;
}

}  // namespace

GatewayResponse translateCompatibility(std::string_view body,
                                       const PreparedCompatibilityRequest& prepared, Date now) {
  auto completion = completionFrom(body);
  if (!completion) {
    return GatewayResponse::error(502, "invalid_local_runtime_response",
                                  "The local runtime did not return a chat completion.");
  }
  const auto seconds = static_cast<std::int64_t>(now.secondsSinceUnixEpoch());
  GatewayResponse response;
  switch (prepared.route) {
    case CompatibilityRoute::openAIChat:
      response = chatResponse(std::move(*completion), prepared, seconds);
      break;
    case CompatibilityRoute::openAIResponses:
      response = responsesResponse(*completion, prepared, seconds);
      break;
    case CompatibilityRoute::anthropicMessages:
      response = messagesResponse(*completion, prepared);
      break;
  }
  response.headers = {{"X-Vantrell-Backend", "local"},
                      {"X-Vantrell-Model", prepared.actualModel},
                      {"X-Vantrell-Requested-Model", prepared.requestedModel}};
  return response;
}

GatewayResponse compatibilityResponse(const std::expected<HttpResponse, HttpError>& result,
                                      const PreparedCompatibilityRequest& prepared, Date now) {
  if (!result && result.error().kind == HttpError::Kind::badAnswer) {
    return GatewayResponse::error(502, "invalid_local_runtime_response",
                                  "The local runtime returned an unsupported response.");
  }
  if (!result) {
    return GatewayResponse::error(
        503, "local_runtime_unavailable",
        "The local runtime could not be reached: " + result.error().description);
  }
  if (!result->isSuccess()) {
    return GatewayResponse::error(
        502, "local_runtime_rejected_request",
        failureIn(result->body)
            .value_or(fmt::format("The local runtime returned HTTP {}.", result->status)));
  }
  return translateCompatibility(result->body, prepared, now);
}

GatewayResponse compatibilityModels(const GatewayRequest& request,
                                    const LocalRuntimeConnection& connection) {
  const bool isAnthropic = request.path.starts_with("/anthropic/");
  Json::Array data;
  for (const auto& model : connection.models) {
    const auto id = "local/" + model.id;
    data.push_back(
        isAnthropic ? JsonObject{{"id", id},
                                 {"type", "model"},
                                 {"display_name", model.label},
                                 {"created_at", "1970-01-01T00:00:00Z"}}
                    : JsonObject{{"id", id}, {"object", "model"}, {"owned_by", "vantrell-local"}});
  }
  if (!isAnthropic) return jsonBody({{"object", "list"}, {"data", std::move(data)}});
  const auto idOf = [&](bool isFirst) {
    if (data.empty()) return Json();
    return *(isFirst ? data.front() : data.back()).asObject()->find("id");
  };
  JsonObject list{{"has_more", false}, {"first_id", idOf(true)}, {"last_id", idOf(false)}};
  list.set("data", std::move(data));
  return jsonBody(list);
}

}  // namespace vantrell
