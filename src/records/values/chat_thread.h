// One conversation ("task" in the interface) and the project folder that holds it. Plain values;
// times come from the caller, so that nothing here reads a clock.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "records/values/conversation_records.h"
#include "records/values/transcript.h"

namespace vantrell {

/// Names one conversation, and with it all its execution state.
struct ThreadExecutionKey {
  Uuid workspaceID;
  Uuid threadID;

  auto operator<=>(const ThreadExecutionKey&) const = default;
};

inline constexpr std::string_view newTaskTitle = "New task";
inline constexpr std::string_view newChatTitle = "New chat";

struct ChatThread {
  /// Keyed by a provider's raw text.
  using PerProvider = std::map<std::string, std::string, std::less<>>;

  Uuid id;
  std::string title;
  /// The Grok session. Older documents hold only this one.
  std::optional<std::string> sessionId;
  std::optional<PerProvider> providerSessionIDs;
  std::optional<PerProvider> providerModelIDs;  // absent rather than empty
  std::optional<PerProvider> providerEfforts;   // absent rather than empty
  std::optional<AgentProvider> lastProvider;    // the last that opened a session here
  std::optional<ImportedSessionReference> importedSession;
  std::optional<std::string> draftText;
  std::vector<ChatAttachment> draftAttachments;
  TaskWorkspaceMode workspaceMode = TaskWorkspaceMode::shared;
  std::optional<std::string> isolatedWorkspacePath;
  std::vector<WorkspaceCheckpoint> checkpoints;
  std::optional<AgentProvider> preferredProvider;    // for the whole task
  std::optional<AgentProvider> nextMessageProvider;  // for one turn
  std::optional<Uuid> comparisonGroupID;
  Transcript entries;
  std::vector<QueuedPrompt> queuedPrompts;  // first to run first
  std::vector<RunRecord> runs;              // oldest first
  Date createdAt;
  Date updatedAt;
  bool isPinned = false;
  bool isArchived = false;

  /// A fresh conversation with a new identity.
  static ChatThread make(std::string title, Date now);

  /// The stored session of this provider. Grok falls back to `sessionId`.
  std::optional<std::string> sessionID(AgentProvider provider) const;
  /// Also makes the provider `lastProvider`. Leaves `updatedAt` alone.
  void setSessionID(std::string session, AgentProvider provider);
  /// The provider's next start begins a new session. It stays `lastProvider`.
  void forgetSessionID(AgentProvider provider);
  /// Those of all providers: none of them knows the conversation as it stands now.
  void forgetSessions();

  std::optional<std::string> modelID(AgentProvider provider) const;
  std::optional<std::string> effort(AgentProvider provider) const;
  /// An absent value and "default" both remove the choice.
  void setModelID(std::optional<std::string> model, AgentProvider provider, Date now);
  void setEffort(std::optional<std::string> effort, AgentProvider provider, Date now);

  /// The run in progress, or the last one.
  const RunRecord* latestRun() const { return runs.empty() ? nullptr : &runs.back(); }

  /// Names a thread that still has a default title after the first line of its first prompt.
  void nameAfterPrompt(std::string_view prompt);
  /// A prompt that is first already, and an unknown id, change nothing.
  void moveQueuedPromptToFront(const Uuid& id, Date now);
  /// Makes relative attachment paths of the entries absolute. Returns the places of those that it
  /// has changed.
  std::vector<std::size_t> resolveAttachments(std::string_view folder);
  /// Makes relative attachment paths absolute and clears what is bound to the old folder (sessions,
  /// checkpoints, worktree), and says so in a system entry. Returns the places of the entries that
  /// it has changed. Those of a transcript that is not read are left for resolveAttachments().
  std::vector<std::size_t> prepareForWorkspaceMove(std::string_view sourceFolder,
                                                   std::string_view sourceName,
                                                   std::string_view destinationName, Date now);

  bool operator==(const ChatThread&) const = default;
};

struct Workspace {
  Uuid id;
  std::string name;
  std::string path;                 // standardized and absolute
  std::vector<ChatThread> threads;  // newest first by insertion
  bool isPinned = false;

  /// A project folder, named after its last component, with one empty task.
  static Workspace makeProject(std::string path, Date now);
  /// The workspace of conversations that belong to no project, with one empty chat.
  static Workspace makeGeneral(std::string path, Date now);

  const ChatThread* thread(const Uuid& threadID) const;
  ChatThread* thread(const Uuid& threadID);

  bool operator==(const Workspace&) const = default;
};

/// Where the conversation's agent works: its own worktree when it has one, else the project folder.
/// Looks at the disk.
std::string executionPath(const Workspace& workspace, const ChatThread& thread);

/// Gives what bears an id a second time a new one: rows and live state are found by id.
void makeIDsUnique(std::vector<Workspace>& workspaces);

}  // namespace vantrell
