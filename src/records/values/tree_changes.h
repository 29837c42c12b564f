// What the next save must write: marked by WorkspaceTree with each change, so that a save costs
// what changed. Plain values.
#pragma once

#include <cstddef>
#include <limits>
#include <map>
#include <set>

#include "records/values/chat_thread.h"

namespace vantrell {

struct TreeChanges {
  /// A list that grows at its end; what was appended needs no mark.
  struct List {
    static constexpr std::size_t unlimited = std::numeric_limits<std::size_t>::max();

    std::set<std::size_t> places;       // changed in place
    std::size_t unchanged = unlimited;  // what comes after is new or gone

    void cutTo(std::size_t length) { unchanged = std::min(unchanged, length); }
  };
  /// A mark by itself covers the time of the last change.
  struct Thread {
    bool head = false;  // anything but entries and runs
    List entries, runs;
  };

  bool structure = false;  // workspaces and threads came, went, moved; a workspace's own fields
  std::map<ThreadExecutionKey, Thread> threads;

  bool empty() const { return !structure && threads.empty(); }
};

}  // namespace vantrell
