#include "shell/terminal/task_list.h"

#include <algorithm>

namespace vantrell::shell {

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

}  // namespace vantrell::shell
