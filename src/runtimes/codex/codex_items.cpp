#include "runtimes/codex/codex_items.h"

#include <fmt/format.h>

#include "platform/text/text.h"
#include "platform/values/json_objects.h"
#include "platform/values/uuid.h"
#include "runtimes/wire/session_updates.h"

namespace vantrell::codex {

namespace {

/// Codex's word for a status in the words of session updates.
std::string_view status(std::string_view theirs) {
  if (theirs == "inProgress") return "in_progress";
  if (theirs == "declined") return "failed";
  return theirs;
}

struct Tool {
  std::string title;
  Json rawInput;
};

Json valueOr(const JsonObject& item, std::string_view key, Json fallback) {
  const Json* value = item.find(key);
  return value && !value->isNull() ? *value : fallback;
}

std::optional<Tool> toolOf(std::string_view type, const JsonObject& item,
                           const std::string& workspacePath) {
  const auto textOrEmpty = [&item](std::string_view key) { return json::textOr(item, key, ""); };
  if (type == "commandExecution") {
    return Tool{json::textOr(item, "command", "Run command"),
                JsonObject{{"command", textOrEmpty("command")},
                           {"cwd", json::textOr(item, "cwd", workspacePath)},
                           {"output", textOrEmpty("aggregatedOutput")}}};
  }
  if (type == "fileChange") {
    return Tool{"Edit files", JsonObject{{"changes", valueOr(item, "changes", Json::Array{})}}};
  }
  if (type == "mcpToolCall") {
    return Tool{fmt::format("{} · {}", json::textOr(item, "server", "MCP"),
                            json::textOr(item, "tool", "tool")),
                valueOr(item, "arguments", JsonObject{})};
  }
  if (type == "dynamicToolCall") {
    return Tool{json::textOr(item, "tool", "Use tool"), valueOr(item, "arguments", JsonObject{})};
  }
  if (type == "webSearch") {
    return Tool{"Search the web", JsonObject{{"query", textOrEmpty("query")}}};
  }
  if (type == "imageView") {
    return Tool{"View image", JsonObject{{"path", textOrEmpty("path")}}};
  }
  return std::nullopt;
}

std::string summaryOf(const JsonObject& reasoning) {
  std::vector<std::string> parts;
  if (const Json::Array* summary = json::array(reasoning, "summary")) {
    for (const Json& part : *summary) {
      if (const std::string* words = part.asText()) parts.push_back(*words);
    }
  }
  return text::joined(parts, "\n");
}

}  // namespace

JsonObject thoughtChunk(std::string_view itemId, std::string text) {
  return sessionUpdates::thoughtChunk(fmt::format("reasoning-{}", itemId), std::move(text));
}

std::optional<JsonObject> itemUpdate(const JsonObject& item, bool isCompleted, bool wasStreamed,
                                     const std::string& workspacePath) {
  const std::string type = json::textOr(item, "type", "");
  const std::string* known = json::text(item, "id");
  std::string id = known ? *known : Uuid::random().text();

  if (type == "agentMessage" || type == "reasoning") {
    if (!isCompleted || wasStreamed) return std::nullopt;
    const bool isAnswer = type == "agentMessage";
    std::string words = isAnswer ? json::textOr(item, "text", "") : summaryOf(item);
    if (words.empty()) return std::nullopt;
    return isAnswer ? sessionUpdates::messageChunk(std::move(id), std::move(words))
                    : thoughtChunk(id, std::move(words));
  }

  auto tool = toolOf(type, item, workspacePath);
  if (!tool) return std::nullopt;
  return JsonObject{
      {"sessionUpdate", "tool_call_update"},
      {"toolCallId", std::move(id)},
      {"title", std::move(tool->title)},
      // A web search and a viewed image have no status of their own.
      {"status", status(json::textOr(item, "status", isCompleted ? "completed" : "inProgress"))},
      {"rawInput", std::move(tool->rawInput)}};
}

JsonObject planUpdate(const JsonObject& params) {
  Json::Array entries;
  for (const JsonObject* step : json::objects(params, "plan")) {
    entries.push_back(JsonObject{{"id", fmt::format("codex-plan-{}", entries.size())},
                                 {"content", json::textOr(*step, "step", "Task")},
                                 {"status", status(json::textOr(*step, "status", "pending"))},
                                 {"priority", "medium"}});
  }
  return {{"sessionUpdate", "plan"}, {"entries", std::move(entries)}};
}

}  // namespace vantrell::codex
