#include "shell/terminal/task_words.h"

#include <fmt/format.h>

namespace vantrell::shell {

TableCell stateCell(views::TaskState state) {
  using enum views::TaskState;
  TableCell cell{std::string(views::word(state))};
  switch (state) {
    case fresh: cell.look = look::dim; break;
    case starting:
    case working: cell.look = look::cyan; break;
    case completed: cell.look = look::green; break;
    case failed: cell.look = look::red; break;
    case waiting:
    case stopped:
    case interrupted: cell.look = look::yellow; break;
  }
  return cell;
}

TableCell idCell(const Uuid& id) {
  return {shortID(id), look::cyan};
}

JsonObject taskMembers(const Workspace& workspace, const ChatThread& thread) {
  return {{"workspaceID", workspace.id.text()},
          {"project", workspace.name},
          {"path", workspace.path},
          {"threadID", thread.id.text()},
          {"title", thread.title}};
}

JsonObject taskAsJson(const Workspace& workspace, const ChatThread& thread) {
  JsonObject task = taskMembers(workspace, thread);
  if (const RunRecord* run = thread.latestRun()) task.set("status", rawText(run->status));
  if (const auto provider = providerOf(thread)) task.set("provider", rawText(*provider));
  task.set("isPinned", thread.isPinned);
  task.set("isArchived", thread.isArchived);
  task.set("createdAt", thread.createdAt.secondsSinceReference());
  task.set("updatedAt", thread.updatedAt.secondsSinceReference());
  return task;
}

JsonObject withoutNulls(const JsonObject& all) {
  JsonObject known;
  for (const auto& [key, value] : all) {
    if (!value.isNull()) known.set(key, value);
  }
  return known;
}

std::string counted(std::size_t count, std::string_view one) {
  return fmt::format("{} {}{}", count, one, count == 1 ? "" : "s");
}

}  // namespace vantrell::shell
