#include "engine/turns/session_intake.h"

#include <fmt/format.h>

#include "engine/turns/prompt_assembly.h"
#include "platform/text/text.h"
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

/// A session knows its own provider's turns alone: of a conversation that went from provider to
/// provider, a transcript rebuilt from it would lose the rest.
bool holdsWorkOfOthers(const Transcript& transcript, std::optional<AgentProvider> provider) {
  return std::ranges::any_of(transcript, [provider](const ChatEntry& entry) {
    return entry.provider && entry.provider != provider;
  });
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
  if (tree_.appendText(*chunk, id, key)) return false;

  ChatEntry entry;
  entry.id = id;
  entry.kind = kind;
  entry.text = *chunk;
  if (kind != ChatEntryKind::user) entry.provider = execution.activeProvider;
  entry.createdAt = main_.now();
  tree_.appendEntry(std::move(entry), key);
  return true;
}

void SessionIntake::upsertToolEntry(const JsonObject& update, const ThreadExecutionKey& key,
                                    ThreadExecutionRuntime& execution) {
  const std::string* id = json::text(update, "toolCallId");
  if (!id) return;
  std::string title = json::textOr(update, "title", "Using a tool");
  std::string status = json::textOr(update, "status", "pending");
  if (isOpenToolStatus(status)) {
    execution.openTools.insert(*id);
  } else {
    execution.openTools.erase(*id);
  }
  const Json* input = update.find("rawInput");
  const bool isShown = input && (input->asObject() || input->asArray());
  std::string detail = isShown ? json::writePrettySorted(*input) : std::string();

  const bool known = tree_.updateEntry(*id, key, [&](ChatEntry& entry) {
    entry.title = title;
    entry.status = status;
    // A later update without input leaves the input shown.
    if (!detail.empty()) entry.text = detail;
  });
  if (known) return;

  ChatEntry entry;
  entry.id = *id;
  entry.kind = ChatEntryKind::tool;
  entry.text = std::move(detail);
  entry.title = std::move(title);
  entry.status = std::move(status);
  entry.provider = execution.activeProvider;
  entry.createdAt = main_.now();
  tree_.appendEntry(std::move(entry), key);
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
  // A replay that is under way keeps what it has put aside.
  if (!execution->replay) execution->replay = std::make_unique<Replay>(tree_, key);
  execution->replayBackup = execution->replay->backup();
  execution->isReplaying = true;
  tree_.replaceTranscript({}, key);
  executions_.changed(key);
}

void SessionIntake::replayFailed(const ThreadExecutionKey& key) {
  ThreadExecutionRuntime* execution = executions_.find(key);
  if (!execution) return;
  execution->endReplay();
  execution->openTools.clear();  // of what was played back and is gone again
  executions_.changed(key);
}

void SessionIntake::startSucceeded(const ThreadExecutionKey& key) {
  ThreadExecutionRuntime* execution = executions_.find(key);
  const ChatThread* thread = tree_.thread(key);
  if (!execution || !execution->replay) return;
  if (!thread || thread->entries.empty()) return execution->endReplay();

  const auto backup = execution->replay->backup();
  if (holdsWorkOfOthers(*backup, execution->activeProvider)) {
    execution->endReplay();
    execution->openTools.clear();
    return;
  }
  runs_.endOpenTools(key);  // of turns that ended long ago
  restoreUserWords(*backup, key);
  const auto turnStart =
      execution->turnEntryID ? backup->indexOf(*execution->turnEntryID) : std::nullopt;
  for (std::size_t i = turnStart.value_or(backup->size()); i < backup->size(); ++i) {
    tree_.appendEntry((*backup)[i], key);
  }
  execution->replay->keepRebuilt();
  execution->endReplay();
}

// A runtime plays back the prompts that it was given, with the instructions that stood round the
// user's words. The words are the entry; with them come back what only we knew of it.
void SessionIntake::restoreUserWords(const Transcript& before, const ThreadExecutionKey& key) {
  const ChatThread* thread = tree_.thread(key);
  auto next = before.begin();  // both are in the order of the conversation
  for (std::size_t i = 0; i < thread->entries.size(); ++i) {
    const ChatEntry& played = thread->entries[i];
    if (played.kind != ChatEntryKind::user) continue;
    const auto composed = composedTextOf(played.text);
    if (!composed) continue;
    const std::string words(ChatAttachmentPrompt::parse(*composed).request);
    const auto known = std::find_if(next, before.end(), [&](const ChatEntry& each) {
      return each.kind == ChatEntryKind::user && each.text == words;
    });
    tree_.updateEntry(std::string(played.id), key, [&](ChatEntry& entry) {
      if (known != before.end()) {
        entry.attachments = known->attachments;
        entry.createdAt = known->createdAt;
      }
      entry.text = words;
    });
    if (known != before.end()) next = known + 1;
  }
}

}  // namespace vantrell
