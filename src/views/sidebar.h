// What a sidebar lists: the pinned tasks, the projects with their tasks, and the archived tasks,
// which are folded away. Each task stands in one place. Pure function, any thread.
#pragma once

#include <functional>
#include <vector>

#include "views/task_rows.h"

namespace vantrell::views {

struct Sidebar {
  struct Project {
    ProjectRow project;
    std::vector<TaskRow> tasks;  // neither pinned nor archived, the newest first

    bool operator==(const Project&) const = default;
  };
  std::vector<TaskRow> pinned;    // of all projects, the newest first
  std::vector<Project> projects;  // General first, then the pinned ones; without tasks as well
  std::vector<TaskRow> archived;  // of all projects, the newest first

  bool operator==(const Sidebar&) const = default;
};

/// `live` gives what is known of a task beyond its record; without it, the records alone count.
Sidebar sidebar(
    const std::vector<Workspace>& workspaces,
    const std::function<std::optional<LiveState>(const ThreadExecutionKey&)>& live = {});

}  // namespace vantrell::views
