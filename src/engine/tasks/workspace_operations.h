// The user's operations on workspaces and conversations. What they leave without a visible
// conversation, the navigation fills. What cannot be done is refused with the sentence for the
// user. Main queue.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/core/refusal.h"
#include "engine/core/run_lifecycle.h"
#include "engine/tasks/external_session_importer.h"
#include "engine/tasks/navigation.h"

namespace vantrell {

class WorkspaceOperations : public std::enable_shared_from_this<WorkspaceOperations> {
 public:
  struct Dependencies {
    MainQueue& main;
    WorkspaceTree& tree;
    ExecutionTable& executions;
    RunLifecycle& runs;
    Navigation& navigation;
    EngineEvents& events;
    Changes& changes;
  };
  explicit WorkspaceOperations(Dependencies dependencies) : core_(dependencies) {}

  // Projects.

  /// Asks the user for a folder and opens it.
  void chooseProject();
  /// Opens a project folder: selects it when it is known, else adds it with one empty task.
  Result<> addWorkspace(std::string_view path);
  /// Forgets a project and ends its clients; nothing on disk is touched. General stays.
  Result<> removeWorkspace(const Uuid& id);
  Result<> setWorkspacePinned(const Uuid& id, bool pinned);
  /// Archives all conversations of a workspace and begins a new one.
  Result<> archiveWorkspaceThreads(const Uuid& id);

  // Conversations.

  /// Makes conversations of sessions that were found, or notes that they are still known. Where
  /// nothing is selected and there is news, the first project is then.
  ExternalSessionImportSummary importSessions(std::vector<ExternalProviderSession> sessions);
  /// A new conversation, selected; without a workspace in the one that the section is about. With
  /// no project to put it in, the user is asked for a folder.
  Result<> newThread(std::optional<Uuid> workspaceID = std::nullopt);
  /// The conversation of the folder that is still as it was made, and that no front end drives: it
  /// has not even a title, as one has that waits for its first run.
  std::optional<ThreadExecutionKey> untouchedThread(std::string_view folder) const;
  /// Opens the folder as addWorkspace() does, and an untouched conversation there.
  Result<ThreadExecutionKey> openUntouchedThread(std::string_view folder);
  /// Puts a conversation that another module has made in front of the others, without selecting it.
  Result<> addThread(ChatThread thread, const Uuid& workspaceID);
  Result<> renameThread(const Uuid& id, const Uuid& workspaceID, std::string_view title);
  /// Ends the conversation's client and deletes it.
  Result<> deleteThread(const Uuid& id, const Uuid& workspaceID);
  Result<> moveThread(const Uuid& id, const Uuid& from, const Uuid& to);
  Result<> toggleThreadPin(const Uuid& id, const Uuid& workspaceID);
  Result<> setThreadArchived(const Uuid& id, const Uuid& workspaceID, bool archived);

  // Drafts. Keeping one does not count as a change of the conversation.

  Result<> saveComposerDraft(std::string_view text, const std::vector<ChatAttachment>& attachments,
                             const Uuid& threadID, const Uuid& workspaceID);
  std::string composerDraft(const Uuid& threadID, const Uuid& workspaceID) const;
  std::vector<ChatAttachment> composerDraftAttachments(const Uuid& threadID,
                                                       const Uuid& workspaceID) const;

 private:
  bool isAtWork(const ThreadExecutionKey& key) const;
  bool isUntouched(const ThreadExecutionKey& key) const;

  const Dependencies core_;
};

}  // namespace vantrell
