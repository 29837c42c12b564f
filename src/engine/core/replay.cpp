#include "engine/core/replay.h"

#include "engine/core/workspace_tree.h"

namespace vantrell {

Replay::Replay(WorkspaceTree& tree, const ThreadExecutionKey& key)
    : tree_(tree), key_(key), savesHeld_(tree.holdSaves()) {
  backup_ = std::make_shared<Transcript>(tree.takeTranscript(key));
}

Replay::~Replay() {
  if (!isKept_) tree_.replaceTranscript(std::move(*backup_), key_);
}

}  // namespace vantrell
