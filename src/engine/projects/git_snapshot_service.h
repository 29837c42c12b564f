// Keeps the Git snapshot of the folder of the selected conversation. It is read
// in the background; a newer reading ends an older one, and what comes of a folder that is no
// longer looked at is dropped. Main queue.
#pragma once

#include <memory>
#include <stop_token>

#include "engine/core/selection.h"
#include "engine/core/workspace_tree.h"
#include "engine/projects/project_services.h"
#include "records/values/git_workspace_snapshot.h"

namespace vantrell {

class GitSnapshotService : public std::enable_shared_from_this<GitSnapshotService> {
 public:
  GitSnapshotService(const WorkspaceTree& tree, const Selection& selection, Changes& changes,
                     ProjectServices& services);
  /// Ends what is being read.
  ~GitSnapshotService();
  GitSnapshotService(const GitSnapshotService&) = delete;
  GitSnapshotService& operator=(const GitSnapshotService&) = delete;

  /// Reads it again; until it is there the former one stands. With no workspace selected it
  /// is unavailable at once.
  void refreshGitSnapshot();
  void refreshIfSelected(const ThreadExecutionKey& key) {
    if (selection_.key() == key) refreshGitSnapshot();
  }
  /// Announced as topics::gitSnapshot.
  const GitWorkspaceSnapshot& gitSnapshot() const { return snapshot_; }

 private:
  /// Of what is looked at.
  std::optional<std::string> path() const;
  void publish(GitWorkspaceSnapshot snapshot);

  const WorkspaceTree& tree_;
  const Selection& selection_;
  Changes& changes_;
  ProjectServices& services_;
  GitWorkspaceSnapshot snapshot_;
  std::stop_source reading_;
};

}  // namespace vantrell
