// The user's operations on workspaces and conversations. An operation on an id that no longer
// exists does nothing. Main queue.
#pragma once

#include <optional>
#include <string_view>

#include "engine/execution_table.h"
#include "engine/selection.h"
#include "engine/workspace_tree.h"

namespace vantrell {

class Operations {
 public:
  Operations(MainQueue& main, WorkspaceTree& tree, Selection& selection,
             ExecutionTable& executions);

  /// Opens a project folder: selects it when it is known, else adds it with one empty task.
  void addWorkspace(std::string_view path);
  /// Selects the workspace and its first conversation.
  void selectWorkspace(const Uuid& id);
  void selectThread(const Uuid& id, const Uuid& workspaceID);
  /// A new conversation in the given workspace, selected.
  void newThread(const Uuid& workspaceID);

  /// Where the selected conversation works; with no conversation, the selected workspace's folder.
  std::optional<std::string> effectiveWorkspacePath() const;
  /// Changes the selected conversation's record.
  void updateActiveThread(const std::function<void(ChatThread&)>& mutate);

 private:
  MainQueue& main_;
  WorkspaceTree& tree_;
  Selection& selection_;
  ExecutionTable& executions_;
};

}  // namespace vantrell
