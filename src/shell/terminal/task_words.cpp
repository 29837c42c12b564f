#include "shell/terminal/task_words.h"

#include "platform/values/json.h"
#include "shell/terminal/json_member.h"

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

void writeTaskMembers(JsonWriter& writer, const Workspace& workspace, const ChatThread& thread) {
  member(writer, "workspaceID", workspace.id.text());
  member(writer, "project", workspace.name);
  member(writer, "path", workspace.path);
  member(writer, "threadID", thread.id.text());
  member(writer, "title", thread.title);
}

std::string taskAsJson(const Workspace& workspace, const ChatThread& thread) {
  std::string line;
  JsonWriter writer(line);
  writer.beginObject();
  writeTaskMembers(writer, workspace, thread);
  if (const RunRecord* run = thread.latestRun()) member(writer, "status", rawText(run->status));
  if (const auto provider = providerOf(thread)) member(writer, "provider", rawText(*provider));
  member(writer, "isPinned", thread.isPinned);
  member(writer, "isArchived", thread.isArchived);
  member(writer, "createdAt", thread.createdAt.secondsSinceReference());
  member(writer, "updatedAt", thread.updatedAt.secondsSinceReference());
  writer.endObject();
  return line + "\n";
}

}  // namespace vantrell::shell
