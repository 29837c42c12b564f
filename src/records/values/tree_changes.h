// Where the tree may have changed since the last save. A mark costs a look at what it names, no
// write: only what differs from the stored rows is written. Marks are made by whoever changes the
// tree; what happens inside a transcript it notes itself.
#pragma once

#include <map>
#include <set>

#include "records/values/chat_thread.h"

namespace vantrell {

struct TreeChanges {
  /// A mark by itself covers the transcript and the time of the last change.
  struct Thread {
    bool head = false;     // anything else but the runs
    bool allRuns = false;  // any of the runs
    std::set<Uuid> runs;   // these runs
  };

  bool structure = false;  // workspaces and threads came, went, moved; a workspace's own fields
  std::map<ThreadExecutionKey, Thread> threads;

  /// A mark on every part of the tree.
  static TreeChanges everywhere(const std::vector<Workspace>& workspaces);
  bool empty() const { return !structure && threads.empty(); }
};

}  // namespace vantrell
