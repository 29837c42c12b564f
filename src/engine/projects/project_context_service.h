// What every provider is told about a project: the profile of the selected one, always at hand, and
// the block that stands in front of a prompt. Guidance files are read in the background, at every
// selection; a prompt waits for that, the interface shows meanwhile what was known before. Main
// queue.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/core/engine_events.h"
#include "engine/core/refusal.h"
#include "engine/core/selection.h"
#include "engine/core/workspace_tree.h"
#include "engine/projects/project_services.h"
#include "records/values/project_context.h"

namespace vantrell {

class OrchestrationStore;

class ProjectContextService : public std::enable_shared_from_this<ProjectContextService> {
 public:
  struct Dependencies {
    MainQueue& main;
    const WorkspaceTree& tree;
    const Selection& selection;
    Changes& changes;
    OrchestrationStore& store;
    ProjectServices& services;
  };
  explicit ProjectContextService(Dependencies dependencies);

  /// Loads what is known about the selected workspace's project, and looks for its guidance anew.
  void load();
  /// Of the selected workspace; blank with none.
  const ProjectContextProfile& projectContext() const { return profile_; }
  /// Once no look for the selected workspace's guidance is under way; at once when none is.
  void whenLoaded(std::function<void()> done);

  /// The block for a conversation's next prompt, empty when nothing is known. Replies at once where
  /// no file has to be read. A conversation in a worktree is told the guidance of the workspace's
  /// own folder.
  void projectContextPrompt(const ThreadExecutionKey& key, std::function<void(std::string)> reply);
  /// The block that the profile makes.
  static std::string block(const ProjectContextProfile& profile);

  /// The profile of any workspace, as it is kept; its discovered sources may be old.
  ProjectContextProfile profile(const Uuid& workspaceID);
  /// Changes a workspace's profile, dates it and saves.
  Result<> update(const Uuid& workspaceID,
                  const std::function<void(ProjectContextProfile&)>& mutate);

  /// Empty for General, which has none.
  std::string projectInstructions(const Uuid& workspaceID);
  /// Text of white space alone clears them. The General workspace has none.
  Result<> setProjectInstructions(std::string_view text, const Uuid& workspaceID);
  /// Both texts are needed.
  Result<> addProjectDecision(std::string_view title, std::string_view detail,
                              const Uuid& workspaceID);

  /// Why the last change could not be stored; it holds in this process all the same. Empty when it
  /// was stored.
  const std::string& saveFailure() const { return saveFailure_; }

 private:
  bool isSelected(const Uuid& workspaceID) const;
  bool isGeneral(const Workspace& workspace) const;
  void loaded();

  const Dependencies core_;
  ProjectContextProfile profile_;
  std::optional<Uuid> workspaceID_;  // whose profile it is
  int loads_ = 0;                    // the latest one counts
  bool isLooking_ = false;
  std::vector<std::function<void()>> waiting_;
  std::string saveFailure_;
};

}  // namespace vantrell
