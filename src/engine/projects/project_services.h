// What the engine asks of a project's folder: reading that may take long, and its hooks. Tests
// stand in for it; LocalProjectServices is the program's own. Main queue.
#pragma once

#include <functional>
#include <stop_token>
#include <string>
#include <vector>

#include "records/values/git_workspace_snapshot.h"
#include "records/values/project_context.h"
#include "records/values/project_hook.h"

namespace vantrell {

/// Each reply comes once, on the main queue, unless the services have gone by then.
class ProjectServices {
 public:
  virtual ~ProjectServices() = default;
  /// What the repository looks like, for a hand-off; empty when there is nothing to say.
  virtual void repositoryState(const std::string& folder,
                               std::function<void(std::string)> reply) = 0;
  /// The files of the folder that guide agents.
  virtual void discoverContextSources(
      const std::string& folder, std::function<void(std::vector<ProjectContextSource>)> reply) = 0;
  /// No reply once it is stopped.
  virtual void gitSnapshot(const std::string& folder, std::stop_token stop,
                           std::function<void(GitWorkspaceSnapshot)> reply) = 0;
  /// Runs one hook; the reply is what the conversation shows of it.
  virtual void runProjectHook(const ProjectHook& hook, const std::string& folder,
                              std::function<void(std::string text)> reply) = 0;
};

}  // namespace vantrell
