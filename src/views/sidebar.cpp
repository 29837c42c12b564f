#include "views/sidebar.h"

#include <map>

namespace vantrell::views {

Sidebar sidebar(const std::vector<Workspace>& workspaces,
                const std::function<std::optional<LiveState>(const ThreadExecutionKey&)>& live) {
  Sidebar result;
  std::map<Uuid, std::size_t> placeOf;
  for (auto& row : projectRows(workspaces)) {
    placeOf[row.id] = result.projects.size();
    result.projects.push_back({std::move(row), {}});
  }
  for (const auto& [workspace, thread] :
       listedTasks(workspaces, ArchivedTasks::included, std::nullopt)) {
    auto& list = thread->isArchived ? result.archived
                 : thread->isPinned ? result.pinned
                                    : result.projects[placeOf[workspace->id]].tasks;
    list.push_back(
        taskRow(*workspace, *thread, live ? live({workspace->id, thread->id}) : std::nullopt));
  }
  return result;
}

}  // namespace vantrell::views
