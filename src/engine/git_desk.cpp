#include "engine/git_desk.h"

#include "platform/weakly.h"

namespace vantrell {

GitDesk::GitDesk(const Operations& operations, Changes& changes, const EnginePorts& ports)
    : operations_(operations), changes_(changes), ports_(ports) {}

GitDesk::~GitDesk() {
  reading_.request_stop();
}

void GitDesk::refreshGitSnapshot() {
  reading_.request_stop();
  reading_ = {};
  const auto path = operations_.effectiveWorkspacePath();
  if (!path) return publish(GitWorkspaceSnapshot::unavailable());
  const std::stop_token stop = reading_.get_token();
  ports_.gitSnapshot(
      *path, stop, weakly(this, [path = *path, stop](GitDesk& self, GitWorkspaceSnapshot snapshot) {
        if (stop.stop_requested()) return;
        // A new task of the same project may work elsewhere.
        if (self.operations_.effectiveWorkspacePath() != path) return self.refreshGitSnapshot();
        self.publish(std::move(snapshot));
      }));
}

void GitDesk::publish(GitWorkspaceSnapshot snapshot) {
  snapshot_ = std::move(snapshot);
  changes_.announce({.kind = Change::Kind::gitSnapshotChanged});
}

}  // namespace vantrell
