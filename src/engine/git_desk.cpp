#include "engine/git_desk.h"

#include "platform/weakly.h"

namespace vantrell {

GitDesk::GitDesk(EngineCore& core)
    : tree_(core.tree), selection_(core.selection), changes_(core.changes), ports_(core.ports) {}

GitDesk::~GitDesk() {
  reading_.request_stop();
}

std::optional<std::string> GitDesk::path() const {
  return tree_.executionPath(selection_.workspaceID(), selection_.threadID());
}

void GitDesk::refreshGitSnapshot() {
  reading_.request_stop();
  reading_ = {};
  const auto folder = path();
  if (!folder) return publish(GitWorkspaceSnapshot::unavailable());
  const std::stop_token stop = reading_.get_token();
  ports_.gitSnapshot(
      *folder, stop,
      weakly(this, [folder = *folder, stop](GitDesk& self, GitWorkspaceSnapshot snapshot) {
        if (stop.stop_requested()) return;
        // A new task of the same project may work elsewhere.
        if (self.path() != folder) return self.refreshGitSnapshot();
        self.publish(std::move(snapshot));
      }));
}

void GitDesk::publish(GitWorkspaceSnapshot snapshot) {
  snapshot_ = std::move(snapshot);
  changes_.announce({.kind = Change::Kind::gitSnapshotChanged});
}

}  // namespace vantrell
