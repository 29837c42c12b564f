#include "practice/transcript.h"

#include <ranges>
#include <utility>

#include "platform/values/uuid.h"

namespace vantrell::practice {
namespace {

JsonObject textContent(std::string_view text) {
  return {{"type", "text"}, {"text", text}};
}

JsonObject messageChunk(HistoryItem::Kind kind, std::string_view id, std::string_view text) {
  const char* name = kind == HistoryItem::Kind::user      ? "user_message_chunk"
                     : kind == HistoryItem::Kind::thought ? "agent_thought_chunk"
                                                          : "agent_message_chunk";
  return {{"sessionUpdate", name}, {"messageId", id}, {"content", textContent(text)}};
}

JsonObject toolUpdate(const char* name, const HistoryItem& item) {
  return {{"sessionUpdate", name}, {"toolCallId", item.id}, {"title", item.text},
          {"kind", item.toolKind}, {"status", item.status}, {"rawInput", item.rawInput}};
}

}  // namespace

void Transcript::recordPrompt(std::string_view text) {
  session_.history.push_back(
      {.kind = HistoryItem::Kind::user, .id = Uuid::random().text(), .text = std::string(text)});
}

void Transcript::speak(HistoryItem::Kind kind, const std::string& messageId,
                       std::string_view text) {
  if (text.empty()) return;
  auto& history = session_.history;
  if (history.empty() || history.back().id != messageId) {
    history.push_back({.kind = kind, .id = messageId});
  }
  history.back().text += text;
  update(messageChunk(kind, messageId, text));
}

void Transcript::say(std::string_view text) {
  speak(HistoryItem::Kind::agent, Uuid::random().text(), text);
}

void Transcript::sayUnrecorded(const std::string& messageId, std::string_view text,
                               Work whenWritten) {
  update(messageChunk(HistoryItem::Kind::agent, messageId, text), std::move(whenWritten));
}

void Transcript::beginTool(const ToolCall& call) {
  session_.history.push_back({.kind = HistoryItem::Kind::tool,
                              .id = call.id,
                              .text = call.title,
                              .toolKind = call.kind,
                              .status = "pending",
                              .rawInput = call.rawInput});
  update(toolUpdate("tool_call", session_.history.back()));
}

void Transcript::updateTool(const ToolCall& call, std::string_view status,
                            std::string_view output) {
  for (HistoryItem& item : session_.history | std::views::reverse) {
    if (item.id != call.id) continue;
    item.status = status;
    auto content = toolUpdate("tool_call_update", item);
    if (!output.empty()) {
      content.set("content",
                  Json::Array{JsonObject{{"type", "content"}, {"content", textContent(output)}}});
    }
    update(std::move(content));
    return;
  }
}

void Transcript::showPlan(const std::vector<PlanEntry>& entries) {
  Json::Array list;
  for (const PlanEntry& entry : entries) {
    list.emplace_back(
        JsonObject{{"content", entry.content}, {"priority", "medium"}, {"status", entry.status}});
  }
  update({{"sessionUpdate", "plan"}, {"entries", std::move(list)}});
}

void Transcript::replay() {
  for (const HistoryItem& item : session_.history) {
    update(item.kind == HistoryItem::Kind::tool ? toolUpdate("tool_call", item)
                                                : messageChunk(item.kind, item.id, item.text));
  }
}

void Transcript::update(JsonObject content, Work whenWritten) {
  host_.notify("session/update", {{"sessionId", session_.id}, {"update", std::move(content)}},
               std::move(whenWritten));
}

}  // namespace vantrell::practice
