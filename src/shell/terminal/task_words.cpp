#include "shell/terminal/task_words.h"

#include "platform/values/json.h"

namespace vantrell::shell {

TableCell stateCell(views::TaskState state) {
  using enum views::TaskState;
  TableCell cell{std::string(views::word(state))};
  switch (state) {
    case fresh: cell.look = &TerminalStyle::dim; break;
    case starting:
    case working: cell.look = &TerminalStyle::cyan; break;
    case completed: cell.look = &TerminalStyle::green; break;
    case failed: cell.look = &TerminalStyle::red; break;
    case waiting:
    case stopped:
    case interrupted: cell.look = &TerminalStyle::yellow; break;
  }
  return cell;
}

JsonObject taskMembers(const Workspace& workspace, const ChatThread& thread) {
  return {{"workspaceID", workspace.id.text()},
          {"project", workspace.name},
          {"path", workspace.path},
          {"threadID", thread.id.text()},
          {"title", thread.title}};
}

std::string taskAsJson(const Workspace& workspace, const ChatThread& thread) {
  JsonObject task = taskMembers(workspace, thread);
  if (const RunRecord* run = thread.latestRun()) task.set("status", rawText(run->status));
  if (const auto provider = providerOf(thread)) task.set("provider", rawText(*provider));
  task.set("isPinned", thread.isPinned);
  task.set("isArchived", thread.isArchived);
  task.set("createdAt", thread.createdAt.secondsSinceReference());
  task.set("updatedAt", thread.updatedAt.secondsSinceReference());
  return json::write(task) + "\n";
}

}  // namespace vantrell::shell
