// A transcript put aside while a runtime plays a stored session back into its place. Unless the
// rebuilt one is kept, the end of this object brings the old one back, whatever ended the replay;
// until then nothing is saved, since the transcript in memory is less than the one on disk.
#pragma once

#include <memory>

#include "records/values/chat_thread.h"

namespace vantrell {

class WorkspaceTree;

class Replay {
 public:
  /// Leaves the conversation without entries, untold. The tree must outlive it.
  Replay(WorkspaceTree& tree, const ThreadExecutionKey& key);
  ~Replay();
  Replay(const Replay&) = delete;
  Replay& operator=(const Replay&) = delete;

  /// To look into while the replay goes on; empty when the old transcript has gone back.
  std::shared_ptr<const Transcript> backup() const { return backup_; }
  /// Adds to what was put aside, whichever transcript is to stand.
  void append(ChatEntry entry) { backup_->append(std::move(entry)); }
  void keepRebuilt() { isKept_ = true; }

 private:
  WorkspaceTree& tree_;
  const ThreadExecutionKey key_;
  // Moved here and back, never copied: to bring it back then writes nothing.
  std::shared_ptr<Transcript> backup_;
  std::shared_ptr<void> savesHeld_;
  bool isKept_ = false;
};

}  // namespace vantrell
