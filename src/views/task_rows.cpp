#include "views/task_rows.h"

#include <algorithm>

#include "platform/files/files.h"
#include "platform/text/visible_text.h"

namespace vantrell::views {

namespace {

constexpr std::size_t shownOfID = 8;  // characters

}  // namespace

TaskState taskState(RunRecordStatus status) {
  switch (status) {
    case RunRecordStatus::starting: return TaskState::starting;
    case RunRecordStatus::running: return TaskState::working;
    case RunRecordStatus::waitingApproval: return TaskState::waiting;
    case RunRecordStatus::completed: return TaskState::completed;
    case RunRecordStatus::failed: return TaskState::failed;
    case RunRecordStatus::cancelled: return TaskState::stopped;
    case RunRecordStatus::interrupted: break;
  }
  return TaskState::interrupted;
}

TaskState taskState(const ChatThread& thread, const std::optional<LiveState>& live) {
  if (live && live->isAsking) return TaskState::waiting;
  const RunRecord* run = thread.latestRun();
  const TaskState state = run ? taskState(run->status) : TaskState::fresh;
  if (!live || (run && isActive(run->status))) return state;
  switch (live->connection) {
    case ConnectionState::Kind::connecting: return TaskState::starting;
    case ConnectionState::Kind::working: return TaskState::working;
    default: return state;
  }
}

std::string_view word(TaskState state) {
  constexpr std::string_view words[] = {"new",       "starting", "working", "waits for you",
                                        "completed", "failed",   "stopped", "interrupted"};
  return words[static_cast<std::size_t>(state)];
}

bool wantsAttention(TaskState state) {
  return state == TaskState::waiting || state == TaskState::failed ||
         state == TaskState::interrupted;
}

std::optional<AgentProvider> providerOf(const ChatThread& thread) {
  const RunRecord* run = thread.latestRun();
  return run && run->provider ? run->provider : thread.lastProvider;
}

std::string shownTitle(std::string_view title) {
  std::string shown = text::onOneLine(title);
  return shown.empty() ? "(untitled)" : shown;
}

std::string shortID(const Uuid& id) {
  return id.text().substr(0, shownOfID);
}

TaskRow taskRow(const Workspace& workspace, const ChatThread& thread,
                const std::optional<LiveState>& live) {
  return {.key = {workspace.id, thread.id},
          .title = shownTitle(thread.title),
          .project = text::onOneLine(workspace.name),
          .state = taskState(thread, live),
          .provider = providerOf(thread),
          .updatedAt = thread.updatedAt,
          .isPinned = thread.isPinned,
          .isArchived = thread.isArchived,
          .queuedPrompts = thread.queuedPrompts.size(),
          .hasDraft = !thread.draftText.value_or("").empty() || !thread.draftAttachments.empty()};
}

std::vector<ListedTask> listedTasks(const std::vector<Workspace>& workspaces,
                                    ArchivedTasks archived, std::optional<Uuid> project) {
  std::vector<ListedTask> tasks;
  for (const auto& workspace : workspaces) {
    if (project && workspace.id != *project) continue;
    for (const auto& thread : workspace.threads) {
      const bool isShown = archived == ArchivedTasks::included ||
                           thread.isArchived == (archived == ArchivedTasks::only);
      if (isShown) tasks.push_back({&workspace, &thread});
    }
  }
  std::ranges::stable_sort(tasks, [](const ListedTask& left, const ListedTask& right) {
    if (left.thread->isPinned != right.thread->isPinned) return left.thread->isPinned;
    return left.thread->updatedAt > right.thread->updatedAt;
  });
  return tasks;
}

ProjectRow projectRow(const Workspace& workspace, bool isGeneral) {
  ProjectRow row{.id = workspace.id,
                 .name = text::onOneLine(workspace.name),
                 .folder = text::onOneLine(withTilde(workspace.path)),
                 .isGeneral = isGeneral,
                 .isPinned = workspace.isPinned};
  for (const auto& thread : workspace.threads) {
    ++(thread.isArchived ? row.archivedTasks : row.tasks);
    row.updatedAt = std::max(row.updatedAt.value_or(thread.updatedAt), thread.updatedAt);
  }
  return row;
}

std::vector<ProjectRow> projectRows(const std::vector<Workspace>& workspaces) {
  std::vector<ProjectRow> rows;
  for (const auto& each : workspaces) rows.push_back(projectRow(each, rows.empty()));
  if (!rows.empty()) {
    std::stable_partition(rows.begin() + 1, rows.end(),
                          [](const ProjectRow& row) { return row.isPinned; });
  }
  return rows;
}

std::string withTilde(const std::string& path) {
  const std::string home = files::homeFolder();
  if (path == home) return "~";
  return path.starts_with(home + "/") ? "~" + path.substr(home.size()) : path;
}

}  // namespace vantrell::views
