#include "engine/replay.h"

#include "engine/workspace_tree.h"

namespace vantrell {

Replay::Replay(WorkspaceTree& tree, const ThreadExecutionKey& key)
    : tree_(tree), key_(key), savesHeld_(tree.holdSaves()) {
  const ChatThread* thread = tree.thread(key);
  backup_ = std::make_shared<Transcript>(thread ? thread->entries : Transcript());
}

Replay::~Replay() {
  if (!isKept_) tree_.replaceTranscript(*backup_, key_);
}

}  // namespace vantrell
