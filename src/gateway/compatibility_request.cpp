#include "gateway/compatibility_request.h"

#include <algorithm>
#include <array>
#include <initializer_list>
#include <optional>

#include "platform/text/text.h"
#include "platform/values/json.h"

namespace vantrell {

namespace {

using Text = GatewayResult<std::string>;
using Messages = GatewayResult<Json::Array>;

/// A runtime on a small machine may need minutes for a long prompt.
constexpr std::chrono::seconds upstreamLimit{300};

struct RoutePath {
  std::string_view path;
  CompatibilityRoute route;
};
constexpr auto postRoutes = std::to_array<RoutePath>({
    {"/openai/v1/chat/completions", CompatibilityRoute::openAIChat},
    {"/xai/v1/chat/completions", CompatibilityRoute::openAIChat},
    {"/openai/v1/responses", CompatibilityRoute::openAIResponses},
    {"/anthropic/v1/messages", CompatibilityRoute::anthropicMessages},
});
constexpr auto listRoutes = std::to_array<std::string_view>(
    {"/openai/v1/models", "/xai/v1/models", "/anthropic/v1/models"});

auto badMessages(std::string message) {
  return refuseRequest(400, "invalid_messages", std::move(message));
}
auto textOnly() {
  return refuseRequest(400, "text_only",
                       "Local API compatibility currently accepts text input only.");
}
auto badContent() {
  return refuseRequest(400, "invalid_content",
                       "Message content must be text or text content blocks.");
}

bool isOneOf(std::string_view text, std::initializer_list<std::string_view> choices) {
  return std::ranges::find(choices, text) != choices.end();
}

void append(std::string& text, std::string_view piece, bool isFirst) {
  if (!isFirst) text += '\n';
  text += piece;
}

/// The text of one block of a list.
Text blockText(const Json& block) {
  if (const auto* text = block.asText()) return *text;
  const auto* object = block.asObject();
  if (!object) return badContent();
  const auto type = json::textOr(*object, "type", "");
  if (isOneOf(type, {"image", "input_image", "image_url"})) return textOnly();
  const auto* text = json::text(*object, "text");
  if (!text || !isOneOf(type, {"text", "input_text", "output_text"})) return badContent();
  return *text;
}

Text textContent(const Json* value) {
  if (!value || value->isNull()) return "";
  if (const auto* text = value->asText()) return *text;
  if (const auto* object = value->asObject()) {
    if (const auto* text = json::text(*object, "text")) return *text;
  }
  const auto* blocks = value->asArray();
  if (!blocks) return badContent();
  std::string joined;
  for (const auto& block : *blocks) {
    const auto text = blockText(block);
    if (!text) return text;
    append(joined, *text, &block == &blocks->front());
  }
  return joined;
}

Json message(std::string_view role, std::string content) {
  return JsonObject{{"role", role}, {"content", std::move(content)}};
}

/// A tool's answer.
Text appendToolMessage(Json::Array& messages, const JsonObject& from, std::string_view idKey,
                       std::string_view contentKey) {
  auto content = textContent(from.find(contentKey));
  if (!content) return content;
  messages.push_back(JsonObject{{"role", "tool"},
                                {"tool_call_id", json::textOr(from, idKey, "")},
                                {"content", std::move(*content)}});
  return content;
}

Json function(Json definition) {
  return JsonObject{{"type", "function"}, {"function", std::move(definition)}};
}

/// The members of the given names, under the names that the runtime knows.
JsonObject picked(const JsonObject& from,
                  std::initializer_list<std::pair<const char*, const char*>> names) {
  JsonObject to;
  for (const auto& [key, name] : names) {
    if (const auto* value = from.find(key)) to.set(name, *value);
  }
  return to;
}

void copyMembers(const JsonObject& from, JsonObject& to, std::initializer_list<const char*> names) {
  for (const auto* name : names) {
    if (const auto* value = from.find(name)) to.set(name, *value);
  }
}

/// What has no name, as the vendors' own tools that run on their servers, is no function.
void setTools(JsonObject& to, const JsonObject& body, const char* schemaKey) {
  const auto* given = json::array(body, "tools");
  if (!given) return;
  Json::Array tools;
  for (const auto& entry : *given) {
    const auto* tool = entry.asObject();
    if (!tool) continue;
    if (const auto* definition = json::object(*tool, "function")) {
      tools.push_back(function(*definition));
    } else if (json::text(*tool, "name")) {
      tools.push_back(function(picked(
          *tool, {{"name", "name"}, {"description", "description"}, {schemaKey, "parameters"}})));
    }
  }
  if (!tools.empty()) to.set("tools", std::move(tools));
}

void setOptions(JsonObject& to, const JsonObject& body,
                std::initializer_list<const char*> tokenKeys) {
  copyMembers(body, to, {"temperature", "top_p"});
  for (const auto* key : tokenKeys) {
    if (const auto* value = body.find(key)) return to.set("max_tokens", *value);
  }
}

Messages chatMessages(const JsonObject& body) {
  const auto* given = json::array(body, "messages");
  if (!given || given->empty() ||
      !std::ranges::all_of(*given, [](const Json& one) { return one.asObject(); })) {
    return badMessages("messages must be a non-empty array.");
  }
  Json::Array messages;
  for (const auto& entry : *given) {
    JsonObject copy = *entry.asObject();
    if (!json::text(copy, "role")) return badMessages("Every message must have a role.");
    if (const auto* content = copy.find("content")) {
      auto text = textContent(content);
      if (!text) return std::unexpected(text.error());
      copy.set("content", std::move(*text));
    }
    messages.push_back(std::move(copy));
  }
  return messages;
}

Messages responsesMessages(const JsonObject& body) {
  Json::Array messages;
  if (const auto* text = json::text(body, "instructions"); text && !text->empty()) {
    messages.push_back(message("system", *text));
  }
  const auto* input = body.find("input");
  if (const auto* text = input ? input->asText() : nullptr) {
    messages.push_back(message("user", *text));
  } else if (const auto* items = input ? input->asArray() : nullptr) {
    for (const auto& entry : *items) {
      const auto* item = entry.asObject();
      if (!item) continue;
      if (json::textOr(*item, "type", "") == "function_call_output") {
        const auto added = appendToolMessage(messages, *item, "call_id", "output");
        if (!added) return std::unexpected(added.error());
        continue;
      }
      auto content = textContent(item->find("content"));
      if (!content) return std::unexpected(content.error());
      messages.push_back(message(json::textOr(*item, "role", "user"), std::move(*content)));
    }
  } else {
    return refuseRequest(400, "invalid_input", "input must be text or an array of input items.");
  }
  if (messages.empty()) return refuseRequest(400, "invalid_input", "input cannot be empty.");
  return messages;
}

/// A model's call of a tool, as the runtime writes it.
Json toolCall(const JsonObject& block) {
  const auto* input = block.find("input");
  return JsonObject{{"id", json::textOr(block, "id", "")},
                    {"type", "function"},
                    {"function", JsonObject{{"name", json::textOr(block, "name", "")},
                                            {"arguments", input ? json::write(*input) : "{}"}}}};
}

/// The message of a list of blocks, if they have one, after those of the tools' answers in it,
/// which must follow the message that called the tools.
GatewayResult<> appendBlocks(Json::Array& messages, const std::string& role,
                             const Json::Array& blocks) {
  std::optional<std::string> text;
  Json::Array toolCalls;
  for (const auto& block : blocks) {
    const auto* object = block.asObject();
    const auto type = object ? json::textOr(*object, "type", "") : "";
    if (type == "tool_use") {
      toolCalls.push_back(toolCall(*object));
    } else if (type == "tool_result") {
      const auto added = appendToolMessage(messages, *object, "tool_use_id", "content");
      if (!added) return std::unexpected(added.error());
    } else if (!isOneOf(type, {"thinking", "redacted_thinking"})) {  // the model's own, returned
      const auto piece = blockText(block);
      if (!piece) return std::unexpected(piece.error());
      const bool isFirst = !text;
      append(isFirst ? text.emplace() : *text, *piece, isFirst);
    }
  }
  if (!text && toolCalls.empty()) return {};
  JsonObject own{{"role", role}, {"content", text.value_or("")}};
  if (!toolCalls.empty()) own.set("tool_calls", std::move(toolCalls));
  messages.push_back(std::move(own));
  return {};
}

Messages anthropicMessages(const JsonObject& body) {
  Json::Array messages;
  if (const auto* system = body.find("system")) {
    auto text = textContent(system);
    if (!text) return std::unexpected(text.error());
    messages.push_back(message("system", std::move(*text)));
  }
  const auto* given = json::array(body, "messages");
  if (!given) return badMessages("messages must be a non-empty array.");
  for (const auto& entry : *given) {
    const auto* object = entry.asObject();
    const auto* role = object ? json::text(*object, "role") : nullptr;
    if (!role) return badMessages("Every message must have a role.");
    const auto* content = object->find("content");
    if (const auto* blocks = content ? content->asArray() : nullptr) {
      const auto added = appendBlocks(messages, *role, *blocks);
      if (!added) return std::unexpected(added.error());
    } else {
      auto text = textContent(content);
      if (!text) return std::unexpected(text.error());
      messages.push_back(message(*role, std::move(*text)));
    }
  }
  if (messages.empty()) return badMessages("messages cannot be empty.");
  return messages;
}

/// Everything but the model.
GatewayResult<JsonObject> upstreamBody(CompatibilityRoute route, const JsonObject& body) {
  const auto messages = route == CompatibilityRoute::openAIChat        ? chatMessages(body)
                        : route == CompatibilityRoute::openAIResponses ? responsesMessages(body)
                                                                       : anthropicMessages(body);
  if (!messages) return std::unexpected(messages.error());
  JsonObject to{{"messages", std::move(*messages)}};
  switch (route) {
    case CompatibilityRoute::openAIChat:
      copyMembers(body, to, {"tools", "tool_choice", "response_format"});
      setOptions(to, body, {"max_completion_tokens", "max_tokens"});
      break;
    case CompatibilityRoute::openAIResponses:
      setTools(to, body, "parameters");
      if (const auto* text = json::object(body, "text")) {
        if (const auto* format = text->find("format")) to.set("response_format", *format);
      }
      setOptions(to, body, {"max_output_tokens"});
      break;
    case CompatibilityRoute::anthropicMessages:
      setTools(to, body, "input_schema");
      setOptions(to, body, {"max_tokens"});
      break;
  }
  return to;
}

}  // namespace

bool isCompatibilityRequest(const GatewayRequest& request) {
  if (request.method == "GET") {
    return std::ranges::find(listRoutes, request.path) != listRoutes.end();
  }
  return request.method == "POST" &&
         std::ranges::find(postRoutes, request.path, &RoutePath::path) != postRoutes.end();
}

std::string resolveModel(std::string_view requested, const std::vector<ProviderModelOption>& models,
                         std::string_view fallback) {
  constexpr std::string_view prefix = "local/";
  const auto isKnown = [&](std::string_view id) {
    return std::ranges::find(models, id, &ProviderModelOption::id) != models.end();
  };
  if (requested.starts_with(prefix) && isKnown(requested.substr(prefix.size()))) {
    return std::string(requested.substr(prefix.size()));
  }
  return std::string(isKnown(requested) ? requested : fallback);
}

GatewayResult<PreparedCompatibilityRequest> prepareCompatibility(
    const GatewayRequest& request, const LocalRuntimeConnection& connection) {
  const auto body = json::parseObject(request.body);
  if (!body) return refuseRequest(400, "invalid_json", "Send a JSON request object.");
  const auto route = std::ranges::find(postRoutes, request.path, &RoutePath::path);
  if (route == postRoutes.end()) {
    return refuseRequest(404, "not_found", "No local compatibility route matches this request.");
  }
  const auto& models = connection.models;
  if (models.empty()) {
    return refuseRequest(503, "local_runtime_has_no_models",
                         "The selected local runtime has no loaded models.");
  }
  const auto chosen = std::ranges::find_if(models, &ProviderModelOption::isDefault);
  const auto& fallback = chosen == models.end() ? models.front() : *chosen;

  PreparedCompatibilityRequest prepared{.route = route->route};
  prepared.requestedModel = text::trimmed(json::textOr(*body, "model", ""));
  if (prepared.requestedModel.empty()) prepared.requestedModel = "default";
  prepared.actualModel = resolveModel(prepared.requestedModel, models, fallback.id);
  prepared.stream = json::boolean(*body, "stream").value_or(false);

  auto upstream = upstreamBody(route->route, *body);
  if (!upstream) return std::unexpected(upstream.error());
  upstream->set("model", prepared.actualModel);
  upstream->set("stream", false);
  prepared.upstream = {.method = "POST",
                       .url = connection.baseURL.appendingPath("chat/completions").text(),
                       .headers = {{"Content-Type", "application/json"}},
                       .body = json::write(*upstream),
                       .requestTimeout = upstreamLimit,
                       .resourceTimeout = upstreamLimit};
  return prepared;
}

}  // namespace vantrell
