#include "engine/turns/session_intake.h"

#include <fmt/format.h>

#include "engine/turns/prompt_assembly.h"
#include "platform/text/text.h"
#include "records/values/playback_merge.h"
#include "runtimes/catalog/provider_registry.h"

namespace vantrell {

namespace {

/// Kimi Code 2 plays back, as the user's, reminders that it has given its model itself.
bool isReminder(const JsonObject& update) {
  const JsonObject* content = json::object(update, "content");
  const std::string* words = content ? json::text(*content, "text") : nullptr;
  const std::string_view trimmed = words ? text::trimmed(*words) : std::string_view();
  return trimmed.starts_with("<system-reminder>") && trimmed.ends_with("</system-reminder>");
}

/// A runtime plays back the prompts that it was given, with the instructions around the user's
/// words. The words are the entry.
void keepUserWords(Transcript& played) {
  for (std::size_t i = 0; i < played.size(); ++i) {
    const ChatEntry& entry = std::as_const(played)[i];
    if (entry.kind != ChatEntryKind::user) continue;
    const auto composed = composedTextOf(entry.text);
    if (composed) played[i].text = std::string(ChatAttachmentPrompt::parse(*composed).request);
  }
}

}  // namespace

SessionIntake::SessionIntake(MainQueue& main, WorkspaceTree& tree, ExecutionTable& executions,
                             RunLifecycle& runs)
    : main_(main), tree_(tree), executions_(executions), runs_(runs) {}

void SessionIntake::handle(const JsonObject& update, const ThreadExecutionKey& key) {
  ThreadExecutionRuntime* execution = executions_.find(key);
  const std::string* kind = json::text(update, "sessionUpdate");
  if (!execution || !kind) return;
  switch (dispatch(*kind, update, key, *execution)) {
    case Outcome::handled: return runs_.active(key);
    case Outcome::unknownKind: return executions_.changed(key);
    case Outcome::ignored: return;
  }
}

SessionIntake::Outcome SessionIntake::dispatch(std::string_view kind, const JsonObject& update,
                                               const ThreadExecutionKey& key,
                                               ThreadExecutionRuntime& execution) {
  if (kind == "agent_message_chunk") {
    upsertTextEntry(update, ChatEntryKind::assistant, execution.fallbackMessageID, key, execution);
  } else if (kind == "agent_thought_chunk") {
    upsertTextEntry(update, ChatEntryKind::thought, "thought-" + execution.fallbackMessageID, key,
                    execution);
  } else if (kind == "tool_call" || kind == "tool_call_update") {
    upsertToolEntry(update, key, execution);
  } else if (kind == "plan") {
    rebuildPlan(update, key, execution);
  } else if (kind == "user_message_chunk") {
    // The user's own prompts are entered when they are sent; an echo of one is no sign of life.
    if (!execution.isReplaying) return Outcome::ignored;
    if (isReminder(update)) return Outcome::handled;
    const std::string fallbackID = "replay-user-" + Uuid::random().text();
    if (upsertTextEntry(update, ChatEntryKind::user, fallbackID, key, execution)) {
      // A turn of the history begins: its answers without ids are no part of the last one's.
      execution.fallbackMessageID = Uuid::random().text();
    }
  } else {
    return Outcome::unknownKind;
  }
  return Outcome::handled;
}

bool SessionIntake::upsertTextEntry(const JsonObject& update, ChatEntryKind kind,
                                    const std::string& fallbackID, const ThreadExecutionKey& key,
                                    const ThreadExecutionRuntime& execution) {
  const JsonObject* content = json::object(update, "content");
  const std::string* chunk = content ? json::text(*content, "text") : nullptr;
  if (!chunk || chunk->empty()) return false;
  const std::string* messageID = json::text(update, "messageId");
  const std::string& id = messageID ? *messageID : fallbackID;
  if (execution.playback) {
    if (ChatEntry* const known = execution.playback->find(id)) {
      known->text.append(*chunk);
      return false;
    }
  } else if (tree_.appendText(*chunk, id, key)) {
    return false;
  }

  ChatEntry entry;
  entry.id = id;
  entry.kind = kind;
  entry.text = *chunk;
  if (kind != ChatEntryKind::user) entry.provider = execution.activeProvider;
  append(std::move(entry), key, execution);
  return true;
}

void SessionIntake::append(ChatEntry entry, const ThreadExecutionKey& key,
                           const ThreadExecutionRuntime& execution) {
  entry.createdAt = main_.now();
  if (execution.playback) {
    execution.playback->append(std::move(entry));
  } else {
    tree_.appendEntry(std::move(entry), key);
  }
}

void SessionIntake::upsertToolEntry(const JsonObject& update, const ThreadExecutionKey& key,
                                    ThreadExecutionRuntime& execution) {
  const std::string* id = json::text(update, "toolCallId");
  if (!id) return;
  std::string title = json::textOr(update, "title", "Using a tool");
  std::string status = json::textOr(update, "status", "pending");
  const bool isOpen = isOpenToolStatus(status);
  if (execution.playback) {
    if (isOpen) status = "failed";  // of a turn that ended long ago
  } else if (isOpen) {
    execution.openTools.insert(*id);
  } else {
    execution.openTools.erase(*id);
  }
  const Json* input = update.find("rawInput");
  const bool isShown = input && (input->asObject() || input->asArray());
  std::string detail = isShown ? json::writePrettySorted(*input) : std::string();

  const auto apply = [&](ChatEntry& entry) {
    entry.title = title;
    entry.status = status;
    // A later update without input leaves the input shown.
    if (!detail.empty()) entry.text = detail;
  };
  if (execution.playback) {
    if (ChatEntry* const known = execution.playback->find(*id)) return apply(*known);
  } else if (tree_.updateEntry(*id, key, apply)) {
    return;
  }

  ChatEntry entry;
  entry.id = *id;
  entry.kind = ChatEntryKind::tool;
  entry.text = std::move(detail);
  entry.title = std::move(title);
  entry.status = std::move(status);
  entry.provider = execution.activeProvider;
  append(std::move(entry), key, execution);
}

void SessionIntake::rebuildPlan(const JsonObject& update, const ThreadExecutionKey& key,
                                ThreadExecutionRuntime& execution) {
  const Json::Array* entries = json::array(update, "entries");
  if (!entries) return;
  auto plan = std::make_shared<std::vector<PlanEntry>>();
  for (const Json& each : *entries) {
    const JsonObject* entry = each.asObject();
    if (!entry) continue;
    plan->push_back({json::textOr(*entry, "id", fmt::format("plan-{}", plan->size())),
                     json::textOr(*entry, "content", "Task"),
                     json::textOr(*entry, "status", "pending"),
                     json::textOr(*entry, "priority", "medium")});
  }
  execution.plan = std::move(plan);
  executions_.changed(key);
}

// ---- replay -------------------------------------------------------------------------------------

void SessionIntake::replayStarted(const ThreadExecutionKey& key) {
  ThreadExecutionRuntime* execution = executions_.find(key);
  const ChatThread* thread = tree_.thread(key);
  if (!execution || !thread) return;
  // Of a second attempt all is played back again.
  execution->beginReplay(thread->entries.size());
  executions_.changed(key);
}

void SessionIntake::replayFailed(const ThreadExecutionKey& key) {
  ThreadExecutionRuntime* execution = executions_.find(key);
  if (!execution) return;
  execution->endReplay();
  executions_.changed(key);
}

void SessionIntake::startSucceeded(const ThreadExecutionKey& key) {
  ThreadExecutionRuntime* execution = executions_.find(key);
  if (!execution || !execution->playback) return;
  Transcript played = std::move(*execution->playback);
  execution->endReplay();
  const ChatThread* thread = tree_.thread(key);
  if (!thread || played.empty()) return;
  keepUserWords(played);
  const auto turn =
      execution->turnEntryID ? thread->entries.indexOf(*execution->turnEntryID) : std::nullopt;
  const std::size_t end = turn.value_or(execution->lengthBeforePlayback);
  tree_.replaceTranscript(Transcript(mergePlayback(thread->entries, end, played)), key);
}

}  // namespace vantrell
