// What the user looks at: the selection, and moving it. Two things stay true: the General workspace
// is there and first, and a selected workspace without a visible conversation (one that is not
// archived) gets a new one at once, so that no project is ever shown empty. An archived
// conversation is selected only where it is asked for by its id. Main queue.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/core/refusal.h"
#include "engine/core/selection.h"
#include "engine/projects/git_snapshot_service.h"
#include "engine/projects/project_context_service.h"
#include "engine/tasks/run_activity.h"

namespace vantrell {

/// A conversation in the list of recent tasks.
struct RecentTaskReference {
  ThreadExecutionKey key;
  Date updatedAt;
};

class Navigation {
 public:
  struct Dependencies {
    MainQueue& main;
    WorkspaceTree& tree;
    Selection& selection;
    ProjectContextService& context;
    GitSnapshotService& git;
  };
  explicit Navigation(Dependencies dependencies) : core_(dependencies) {}

  const Selection& selection() const { return core_.selection; }
  Result<> selectThread(const Uuid& id, const Uuid& workspaceID);
  /// Selects the workspace and its first visible conversation.
  Result<> selectWorkspace(const Uuid& id);
  /// Selects the conversation of a row of the activity list, as openSearchResult() does: the row
  /// may belong to the other half of the application.
  Result<> selectActivity(const RunActivity& activity);
  /// Selects the conversation and asks the interface to bring the entry into view, also when the
  /// conversation is selected already. The section becomes the one that shows it: `chat` for the
  /// General workspace, `build` for a project. An archived conversation opens as it is. Where the
  /// entry has gone, the conversation opens as ever.
  Result<> openSearchResult(const Uuid& workspaceID, const Uuid& threadID,
                            std::string_view entryID);
  void setSection(AppSection section) { core_.selection.setSection(section); }
  /// Conversations that are not archived, newest first: in the chat section those of the General
  /// workspace, elsewhere those of all projects.
  std::vector<RecentTaskReference> recentTaskReferences() const;
  /// Moves the selection along the recent tasks, past the last one to the first and back.
  void selectAdjacentRecentTask(int offset);
  /// Where the selected conversation works; with no conversation, the selected workspace's folder.
  std::optional<std::string> effectiveWorkspacePath() const;

  /// For start-up: the restored workspace gets a conversation where it has none to show.
  void settleSelection();

  // For what changes projects and conversations.

  /// The workspace of conversations that belong to no project.
  const Workspace* generalWorkspace() const;
  bool isGeneral(const Uuid& workspaceID) const;
  /// A fresh conversation for a workspace that has just become empty.
  ChatThread replacementFor(const Uuid& workspaceID) const;
  /// The first visible conversation; added, and saved, when there was none.
  Uuid visibleThread(const Uuid& workspaceID);
  /// Where a selected workspace has just lost its last visible conversation, it gets a new one.
  void fillIfSelected(const Uuid& workspaceID);
  /// Selects, and shows what belongs to the project.
  void show(const Uuid& workspaceID, const Uuid& threadID,
            std::optional<std::string> entryID = std::nullopt);
  /// The same for a conversation that takes the place of another one of its project.
  void replaceShown(const Uuid& workspaceID, const Uuid& threadID);
  void addAndSelect(ChatThread thread, const Uuid& workspaceID);

 private:
  void showInItsSection(const ThreadExecutionKey& key, std::optional<std::string> entryID);

  const Dependencies core_;
};

}  // namespace vantrell
