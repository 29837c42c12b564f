// The small records of a conversation: what a thread is made of. Plain values; only the engine
// changes them. `rawTexts` gives the stored text of each enumeration.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/values/date.h"
#include "platform/values/uuid.h"
#include "records/values/agent_provider.h"
#include "records/values/raw_text.h"

namespace vantrell {

enum class ChatAttachmentKind { image, file, directory };
constexpr auto rawTexts(ChatAttachmentKind) {
  return std::to_array<std::string_view>({"image", "file", "directory"});
}

/// A file, folder or image given to the agent.
struct ChatAttachment {
  Uuid id;
  std::string displayName;
  std::string path;  // absolute, or relative to the workspace folder
  ChatAttachmentKind kind = ChatAttachmentKind::file;
  std::optional<std::string> contentType;
  std::optional<std::int64_t> byteCount;

  bool operator==(const ChatAttachment&) const = default;
};

enum class ChatEntryKind { user, assistant, thought, tool, system };
constexpr auto rawTexts(ChatEntryKind) {
  return std::to_array<std::string_view>({"user", "assistant", "thought", "tool", "system"});
}

/// Whether a tool's entry with this status waits for more to come.
constexpr bool isOpenToolStatus(std::string_view status) {
  // "running" is a word of Claude Code's background tasks.
  return status == "pending" || status == "in_progress" || status == "running";
}

/// One element of a transcript.
struct ChatEntry {
  /// Unique within the thread: a runtime's message or tool-call id, or a fresh UUID's text.
  std::string id;
  ChatEntryKind kind = ChatEntryKind::user;
  std::string text;                       // of a tool: its input as JSON text, or empty
  std::optional<std::string> title;       // of a tool, or the short heading of a system entry
  std::optional<std::string> status;      // of a tool, as the runtime reports it
  std::optional<AgentProvider> provider;  // who wrote it; absent on user and system entries
  std::vector<ChatAttachment> attachments;
  Date createdAt;

  bool operator==(const ChatEntry&) const = default;
};

/// A prompt given while the thread was busy.
struct QueuedPrompt {
  Uuid id;
  std::string text;
  std::vector<ChatAttachment> attachments;
  Date createdAt;

  bool operator==(const QueuedPrompt&) const = default;
};

enum class RunRecordStatus {
  starting,
  running,
  waitingApproval,
  completed,
  failed,
  cancelled,
  interrupted
};
constexpr auto rawTexts(RunRecordStatus) {
  return std::to_array<std::string_view>({"starting", "running", "waitingApproval", "completed",
                                          "failed", "cancelled", "interrupted"});
}
/// The run has not ended.
constexpr bool isActive(RunRecordStatus status) {
  return status == RunRecordStatus::starting || status == RunRecordStatus::running ||
         status == RunRecordStatus::waitingApproval;
}
/// The user should look at it.
constexpr bool needsAttention(RunRecordStatus status) {
  return status == RunRecordStatus::waitingApproval || status == RunRecordStatus::failed ||
         status == RunRecordStatus::interrupted;
}

/// One attempt to carry out one prompt.
struct RunRecord {
  Uuid id;
  std::string prompt;  // as the user wrote it, without attachments and context
  std::optional<AgentProvider> provider;
  std::optional<std::string> modelID;
  std::optional<std::string> effort;
  RunRecordStatus status = RunRecordStatus::starting;
  std::optional<std::string> statusMessage;  // one line for people
  std::optional<std::string> routingReason;  // why this provider ran
  Date startedAt;
  Date updatedAt;
  std::optional<Date> lastActivityAt;  // persisted at most every 15 s while a turn streams
  std::optional<Date> completedAt;

  bool operator==(const RunRecord&) const = default;
};

enum class TaskWorkspaceMode { shared, isolated };
constexpr auto rawTexts(TaskWorkspaceMode) {
  return std::to_array<std::string_view>({"shared", "isolated"});
}

enum class WorkspaceCheckpointKind { automatic, manual, recovery };
constexpr auto rawTexts(WorkspaceCheckpointKind) {
  return std::to_array<std::string_view>({"automatic", "manual", "recovery"});
}

/// One restore point of a task.
struct WorkspaceCheckpoint {
  Uuid id;
  std::string label;
  WorkspaceCheckpointKind kind = WorkspaceCheckpointKind::automatic;
  Date createdAt;
  std::optional<std::string> baseRevision;  // Git revision at capture
  std::string archivePath;
  std::int64_t conversationEntryCount = 0;  // length of the transcript at capture
  std::optional<std::string> sourceMessageID;
  std::int64_t changedFileCount = 0;

  bool operator==(const WorkspaceCheckpoint&) const = default;
};

enum class ExternalSessionActivity { active, idle, recent, unknown };
constexpr auto rawTexts(ExternalSessionActivity) {
  return std::to_array<std::string_view>({"active", "idle", "recent", "unknown"});
}

/// Where an imported conversation came from.
struct ImportedSessionReference {
  AgentProvider provider = AgentProvider::grok;
  std::string sessionID;
  std::string sourceLabel;
  ExternalSessionActivity activity = ExternalSessionActivity::unknown;
  Date importedAt;
  Date lastSeenAt;

  bool operator==(const ImportedSessionReference&) const = default;
};

}  // namespace vantrell
