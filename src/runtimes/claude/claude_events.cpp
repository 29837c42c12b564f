#include "runtimes/claude/claude_events.h"

#include "platform/values/json_objects.h"
#include "platform/values/uuid.h"
#include "records/values/conversation_records.h"
#include "runtimes/wire/session_updates.h"

namespace vantrell {

namespace {

constexpr const char* inProgress = "in_progress";
constexpr const char* completed = "completed";
constexpr const char* failed = "failed";

JsonObject toolStatus(std::string id, std::string title, std::string status,
                      const char* kind = "tool_call_update") {
  return {{"sessionUpdate", kind},
          {"toolCallId", std::move(id)},
          {"title", std::move(title)},
          {"status", std::move(status)}};
}

/// Without the copy that braces would make.
ClaudeEvents::Updates one(JsonObject update) {
  ClaudeEvents::Updates updates;
  updates.push_back(std::move(update));
  return updates;
}

/// The text under the key, when it is not empty.
const std::string* words(const JsonObject& object, std::string_view key) {
  const std::string* found = json::text(object, key);
  return found && !found->empty() ? found : nullptr;
}

std::vector<const JsonObject*> blocksOf(const JsonObject& message) {
  return json::objects(json::objectOrEmpty(message, "message"), "content");
}

std::string statusOfTask(const JsonObject& message, bool begins) {
  if (const std::string* status = json::text(message, "status")) return *status;
  // Claude Code 2 tells a change of a task under "patch"; a patch without a status left it as it
  // was.
  if (const JsonObject* patch = json::object(message, "patch")) {
    const std::string status = json::textOr(*patch, "status", inProgress);
    return status == "running" ? inProgress : status;
  }
  return begins ? inProgress : completed;
}

}  // namespace

// ---- turns --------------------------------------------------------------------------------------

void ClaudeEvents::beginTurn() {
  messageID_ = Uuid::random().text();
  streamedText_ = false;
  streamedThinking_ = false;
  isParted_ = false;
  synthetic_.clear();
}

ClaudeEvents::Updates ClaudeEvents::endTurn(bool turnFailed) {
  Updates updates;
  // Of a turn that failed it is the error, which is told as such.
  if (!turnFailed && !synthetic_.empty()) updates.push_back(textChunk(synthetic_));
  for (auto& [id, title] : std::exchange(openTools_, {})) {
    if (turnFailed) updates.push_back(toolStatus(id, std::move(title), failed));
  }
  // Claude Code may go on with a turn of its own.
  beginTurn();
  return updates;
}

// ---- messages -----------------------------------------------------------------------------------

ClaudeEvents::Updates ClaudeEvents::streamEvent(const JsonObject& message) {
  const JsonObject& event = json::objectOrEmpty(message, "event");
  const std::string type = json::textOr(event, "type", "");
  if (type == "content_block_start") {
    const JsonObject& block = json::objectOrEmpty(event, "content_block");
    return json::textOr(block, "type", "") == "tool_use" ? one(toolUse(block)) : Updates();
  }
  if (type != "content_block_delta") return {};
  const JsonObject& delta = json::objectOrEmpty(event, "delta");
  const std::string kind = json::textOr(delta, "type", "");
  if (const auto* piece = kind == "text_delta" ? words(delta, "text") : nullptr) {
    streamedText_ = true;
    return one(textChunk(*piece));
  }
  if (const auto* piece = kind == "thinking_delta" ? words(delta, "thinking") : nullptr) {
    streamedThinking_ = true;
    return one(thoughtChunk(*piece));
  }
  return {};
}

ClaudeEvents::Updates ClaudeEvents::assistantMessage(const JsonObject& message) {
  Updates updates;
  // Words of Claude Code itself, such as those of a limit; the model said nothing.
  const JsonObject& inner = json::objectOrEmpty(message, "message");
  const bool isSynthetic = json::textOr(inner, "model", "") == "<synthetic>";
  for (const JsonObject* block : blocksOf(message)) {
    const std::string type = json::textOr(*block, "type", "");
    if (isSynthetic && type == "text") {
      synthetic_ += json::textOr(*block, "text", "");
    } else if (type == "text" && !streamedText_) {
      if (const std::string* whole = words(*block, "text")) updates.push_back(textChunk(*whole));
    } else if (type == "thinking" && !streamedThinking_) {
      if (const std::string* whole = words(*block, "thinking")) {
        updates.push_back(thoughtChunk(*whole));
      }
    } else if (type == "tool_use") {
      updates.push_back(toolUse(*block));
    }
  }
  return updates;
}

ClaudeEvents::Updates ClaudeEvents::userMessage(const JsonObject& message) {
  Updates updates;
  for (const JsonObject* block : blocksOf(message)) {
    if (json::textOr(*block, "type", "") != "tool_result") continue;
    // A tool that was never announced has no entry that could end.
    auto tool = openTools_.extract(json::textOr(*block, "tool_use_id", ""));
    if (tool.empty()) continue;
    const bool hasFailed = json::boolean(*block, "is_error").value_or(false);
    updates.push_back(
        toolStatus(tool.key(), std::move(tool.mapped()), hasFailed ? failed : completed));
  }
  return updates;
}

ClaudeEvents::Updates ClaudeEvents::systemEvent(const JsonObject& message) {
  const std::string subtype = json::textOr(message, "subtype", "");
  const bool begins = subtype == "task_started";
  if (!begins && subtype != "task_notification" && subtype != "task_updated") return {};

  const std::string id =
      json::textOr(message, "task_id", json::textOr(message, "uuid", Uuid::random().text()));
  const auto known = openTasks_.find(id);
  // Claude Code 2 says what it starts in "description".
  std::string title = json::textOr(
      message, "summary",
      json::textOr(message, "description",
                   known == openTasks_.end() ? "Claude background task" : known->second));
  std::string status = statusOfTask(message, begins);
  // Only a task that has not ended has more to say.
  if (isOpenToolStatus(status)) {
    openTasks_.insert_or_assign(id, title);
  } else {
    openTasks_.erase(id);
  }
  return one(toolStatus(id, std::move(title), std::move(status),
                        begins ? "tool_call" : "tool_call_update"));
}

// ---- updates ------------------------------------------------------------------------------------

const std::string& ClaudeEvents::messageID() {
  if (std::exchange(isParted_, false)) messageID_ = Uuid::random().text();
  return messageID_;
}

JsonObject ClaudeEvents::textChunk(const std::string& text) {
  return sessionUpdates::messageChunk(messageID(), text);
}

JsonObject ClaudeEvents::thoughtChunk(const std::string& text) {
  return sessionUpdates::thoughtChunk("thought-" + messageID(), text);
}

JsonObject ClaudeEvents::toolUse(const JsonObject& block) {
  const std::string* given = json::text(block, "id");
  std::string id = given ? *given : Uuid::random().text();
  std::string title = json::textOr(block, "name", "Claude tool");
  // Nothing can tell the end of a call without an id.
  if (given && openTools_.insert_or_assign(id, title).second) isParted_ = true;
  JsonObject update = toolStatus(std::move(id), std::move(title), inProgress);
  const Json* input = block.find("input");
  update.set("rawInput", input ? *input : Json(JsonObject{}));
  return update;
}

}  // namespace vantrell
