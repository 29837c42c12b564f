#include "engine/projects/git_snapshot_service.h"

#include "platform/queues/weakly.h"

namespace vantrell {

GitSnapshotService::GitSnapshotService(const WorkspaceTree& tree, const Selection& selection,
                                       Changes& changes, ProjectServices& services)
    : tree_(tree), selection_(selection), changes_(changes), services_(services) {}

GitSnapshotService::~GitSnapshotService() {
  reading_.request_stop();
}

std::optional<std::string> GitSnapshotService::path() const {
  return tree_.executionPath(selection_.workspaceID(), selection_.threadID());
}

void GitSnapshotService::refreshGitSnapshot() {
  reading_.request_stop();
  reading_ = {};
  const auto folder = path();
  if (!folder) return publish(GitWorkspaceSnapshot::unavailable());
  const std::stop_token stop = reading_.get_token();
  services_.gitSnapshot(*folder, stop,
                        weakly(this, [folder = *folder, stop](GitSnapshotService& self,
                                                              GitWorkspaceSnapshot snapshot) {
                          if (stop.stop_requested()) return;
                          // A new task of the same project may work elsewhere.
                          if (self.path() != folder) return self.refreshGitSnapshot();
                          self.publish(std::move(snapshot));
                        }));
}

void GitSnapshotService::publish(GitWorkspaceSnapshot snapshot) {
  snapshot_ = std::move(snapshot);
  changes_.mark(topics::gitSnapshot);
}

}  // namespace vantrell
