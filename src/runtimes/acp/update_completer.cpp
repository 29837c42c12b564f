#include "runtimes/acp/update_completer.h"

#include "platform/values/uuid.h"
#include "records/values/conversation_records.h"

namespace vantrell {

void UpdateCompleter::beginTurn() {
  std::erase_if(tools_, [](const auto& each) { return !isOpenToolStatus(each.second.status); });
  hasWorked_ = isParted_ = false;
  messageID_.clear();
}

void UpdateCompleter::complete(JsonObject& update) {
  const std::string kind = json::textOr(update, "sessionUpdate", "");
  if (kind == "tool_call" || kind == "tool_call_update") {
    completeTool(update);
  } else if (kind == "agent_message_chunk" || kind == "agent_thought_chunk") {
    completeText(update, kind == "agent_thought_chunk");
  } else if (kind == "user_message_chunk") {
    return beginTurn();  // of a session that is played back
  } else if (kind != "plan") {
    return;
  }
  hasWorked_ = true;
}

void UpdateCompleter::completeTool(JsonObject& update) {
  const std::string* id = json::text(update, "toolCallId");
  if (!id) return;
  const auto [entry, isNew] = tools_.try_emplace(*id);
  if (isNew) isParted_ = true;
  Tool& tool = entry->second;
  const auto carry = [&update](const char* key, std::string& known) {
    if (const std::string* given = json::text(update, key)) {
      known = *given;
    } else if (!known.empty()) {
      update.set(key, known);
    }
  };
  carry("title", tool.title);
  carry("status", tool.status);
}

void UpdateCompleter::completeText(JsonObject& update, bool isThought) {
  if (json::text(update, "messageId")) return;
  if (std::exchange(isParted_, false)) messageID_ = Uuid::random().text();
  if (messageID_.empty()) return;
  update.set("messageId", isThought ? "thought-" + messageID_ : messageID_);
}

}  // namespace vantrell
