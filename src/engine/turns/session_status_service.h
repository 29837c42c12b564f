// Answers the question how a task stands, at once and from what the program knows: no agent hears
// of it, and nothing waits. Main queue.
#pragma once

#include <string>

#include "engine/core/execution_table.h"
#include "engine/core/workspace_tree.h"
#include "engine/turns/session_status.h"

namespace vantrell {

class SessionStatusService {
 public:
  SessionStatusService(MainQueue& main, WorkspaceTree& tree, ExecutionTable& executions,
                       Changes& changes);

  SessionStatusReport report(const ThreadExecutionKey& key);
  /// Adds the question and its answer to the conversation, which is named after them when it has no
  /// title of its own. Runs, clients and the queue stay as they are.
  void respondToSessionStatus(std::string text, const ThreadExecutionKey& key);

 private:
  void append(ChatEntryKind kind, std::string text, const ThreadExecutionKey& key);

  MainQueue& main_;
  WorkspaceTree& tree_;
  ExecutionTable& executions_;
  Changes& changes_;
};

}  // namespace vantrell
