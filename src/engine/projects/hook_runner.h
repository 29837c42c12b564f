// The hooks of projects: which there are, and that they run around a task, one after the other. A
// hook cannot stop a task: whatever comes of it is an entry of the conversation. Main queue.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "engine/core/refusal.h"
#include "engine/core/workspace_tree.h"
#include "engine/projects/project_context_service.h"
#include "engine/projects/project_services.h"

namespace vantrell {

class HookRunner : public std::enable_shared_from_this<HookRunner> {
 public:
  HookRunner(MainQueue& main, WorkspaceTree& tree, ProjectContextService& contexts,
             ProjectServices& services);

  /// Adds a hook to the project and returns its id. Whether there is such a file is seen when it
  /// runs. A path that is empty or absolute is refused.
  Result<Uuid> addProjectHook(ProjectHookEvent event, std::string_view relativeExecutablePath,
                              const Uuid& workspaceID);
  Result<> removeProjectHook(const Uuid& id, const Uuid& workspaceID);

  /// Runs the enabled hooks of the event where the conversation works, in the order of the list;
  /// what each says becomes an entry when it has ended. `done` is called when the last one has, at
  /// once where there is none. Hooks that work in the same folder never run at the same time, also
  /// those of several calls.
  void runProjectHooks(ProjectHookEvent event, const ThreadExecutionKey& key,
                       std::function<void()> done);
  /// Once no hook of the conversation is at work or waits; at once where none does. For the end of
  /// a process, which ends its hooks.
  void whenDone(const ThreadExecutionKey& key, std::function<void()> done);

 private:
  /// One call of runProjectHooks.
  struct Round {
    ThreadExecutionKey key;
    std::deque<ProjectHook> hooks;  // that have not ended
    std::function<void()> done;
  };
  void runNext(const std::string& path);
  void ended(const std::string& path, std::string text);

  MainQueue& main_;
  WorkspaceTree& tree_;
  ProjectContextService& contexts_;
  ProjectServices& services_;
  std::map<std::string, std::deque<Round>> rounds_;  // by folder; the first one is at work
};

}  // namespace vantrell
