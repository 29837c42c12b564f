#include "engine/operations.h"

#include "platform/dispatch.h"
#include "platform/files.h"

namespace vantrell {

Operations::Operations(MainQueue& main, WorkspaceTree& tree, Selection& selection,
                       ExecutionTable& executions)
    : main_(main), tree_(tree), selection_(selection), executions_(executions) {}

void Operations::addWorkspace(std::string_view path) {
  const std::string folder = files::standardized(path);
  for (const auto& workspace : tree_.workspaces()) {
    if (workspace.path == folder) return selectWorkspace(workspace.id);
  }
  Workspace workspace = Workspace::makeProject(folder, main_.now());
  const ThreadExecutionKey key{workspace.id, workspace.threads.front().id};
  tree_.addWorkspace(std::move(workspace));
  executions_.selectExecution(key.workspaceID, key.threadID);
  tree_.save();
}

void Operations::selectWorkspace(const Uuid& id) {
  const Workspace* workspace = tree_.workspace(id);
  if (!workspace) return;
  const auto first =
      workspace->threads.empty() ? std::nullopt : std::optional(workspace->threads.front().id);
  executions_.selectExecution(id, first);
}

void Operations::selectThread(const Uuid& id, const Uuid& workspaceID) {
  const ThreadExecutionKey key{workspaceID, id};
  if (selection_.key() == key || !tree_.thread(key)) return;
  executions_.selectExecution(workspaceID, id);
}

void Operations::newThread(const Uuid& workspaceID) {
  if (!tree_.workspace(workspaceID)) return;
  const bool isGeneral = tree_.workspaces().front().id == workspaceID;
  ChatThread thread =
      ChatThread::make(std::string(isGeneral ? newChatTitle : newTaskTitle), main_.now());
  const Uuid id = thread.id;
  tree_.addThread(std::move(thread), workspaceID);
  executions_.selectExecution(workspaceID, id);
  tree_.save();
}

std::optional<std::string> Operations::effectiveWorkspacePath() const {
  if (const auto key = selection_.key()) return tree_.executionPath(*key);
  const Workspace* workspace =
      selection_.workspaceID() ? tree_.workspace(*selection_.workspaceID()) : nullptr;
  return workspace ? std::optional(workspace->path) : std::nullopt;
}

void Operations::updateActiveThread(const std::function<void(ChatThread&)>& mutate) {
  if (const auto key = selection_.key()) tree_.updateThread(*key, mutate);
}

}  // namespace vantrell
