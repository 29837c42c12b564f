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

#include "engine/core/engine_core.h"
#include "records/values/project_context.h"

namespace vantrell {

class OrchestrationStore;

class ProjectContextService : public std::enable_shared_from_this<ProjectContextService> {
 public:
  explicit ProjectContextService(EngineCore& core);

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
  /// Changes a workspace's profile, dates it and saves. False when there is no such workspace.
  bool update(const Uuid& workspaceID, const std::function<void(ProjectContextProfile&)>& mutate);

  /// Empty for General, which has none.
  std::string projectInstructions(const Uuid& workspaceID);
  /// Without an ID those of the selected workspace. Text of white space alone clears them.
  void setProjectInstructions(std::string_view text,
                              std::optional<Uuid> workspaceID = std::nullopt);
  /// Does nothing when one of the texts is blank.
  void addProjectDecision(std::string_view title, std::string_view detail,
                          std::optional<Uuid> workspaceID = std::nullopt);

  /// Why the last change could not be stored; it holds in this process all the same. Empty when it
  /// was stored.
  const std::string& saveFailure() const { return saveFailure_; }

 private:
  bool isSelected(const Uuid& workspaceID) const;
  bool isGeneral(const Workspace& workspace) const;
  void loaded();

  MainQueue& main_;
  WorkspaceTree& tree_;
  Selection& selection_;
  Changes& changes_;
  OrchestrationStore& store_;
  const EnginePorts& ports_;
  ProjectContextProfile profile_;
  std::optional<Uuid> workspaceID_;  // whose profile it is
  int loads_ = 0;                    // the latest one counts
  bool isLooking_ = false;
  std::vector<std::function<void()>> waiting_;
  std::string saveFailure_;
};

}  // namespace vantrell
