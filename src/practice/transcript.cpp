#include "practice/transcript.h"

#include <ranges>
#include <utility>

#include "platform/values/uuid.h"

namespace vantrell::practice {
namespace {

JsonObject textContent(std::string_view text) {
  return {{"type", "text"}, {"text", text}};
}

JsonObject chunk(std::string_view kind, std::string_view id, std::string_view text) {
  return {{"sessionUpdate", kind}, {"messageId", id}, {"content", textContent(text)}};
}

}  // namespace

void Transcript::recordPrompt(std::string_view text) {
  session_.history.push_back(chunk("user_message_chunk", Uuid::random().text(), text));
}

void Transcript::speak(std::string_view kind, const std::string& messageId, std::string_view text) {
  if (text.empty()) return;
  auto& history = session_.history;
  if (history.empty() || json::textOr(history.back(), "messageId", "") != messageId) {
    history.push_back(chunk(kind, messageId, ""));
  }
  *history.back().find("content")->asObject()->find("text")->asText() += text;
  update(chunk(kind, messageId, text));
}

void Transcript::say(std::string_view text) {
  speak(answerChunk, Uuid::random().text(), text);
}

void Transcript::sayUnrecorded(const std::string& messageId, std::string_view text,
                               Work whenWritten) {
  update(chunk(answerChunk, messageId, text), std::move(whenWritten));
}

void Transcript::beginTool(const JsonObject& call) {
  JsonObject begun{{"sessionUpdate", "tool_call"}};
  for (const auto& [key, value] : call) begun.set(key, value);
  begun.set("status", "pending");
  session_.history.push_back(begun);
  update(std::move(begun));
}

void Transcript::updateTool(const std::string& callId, std::string_view status,
                            std::string_view output) {
  for (JsonObject& item : session_.history | std::views::reverse) {
    if (json::textOr(item, "toolCallId", "") != callId) continue;
    item.set("status", status);
    JsonObject changed = item;
    changed.set("sessionUpdate", "tool_call_update");
    if (!output.empty()) {
      changed.set("content",
                  Json::Array{JsonObject{{"type", "content"}, {"content", textContent(output)}}});
    }
    return update(std::move(changed));
  }
}

void Transcript::showPlan(Json::Array entries) {
  update({{"sessionUpdate", "plan"}, {"entries", std::move(entries)}});
}

void Transcript::replay() {
  for (const JsonObject& item : session_.history) update(item);
}

void Transcript::update(JsonObject content, Work whenWritten) {
  host_.notify("session/update", {{"sessionId", session_.id}, {"update", std::move(content)}},
               std::move(whenWritten));
}

}  // namespace vantrell::practice
