// The consuming end of the update stream: turns each update of a running client into transcript
// entries, the plan and the marks of activity. Decides how often a stream reaches the disk, and how
// a resumed session rebuilds a transcript without ever losing it. Main queue.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "engine/core/run_lifecycle.h"
#include "platform/values/json.h"

namespace vantrell {

class SessionIntake {
 public:
  SessionIntake(MainQueue& main, WorkspaceTree& tree, ExecutionTable& executions,
                RunLifecycle& runs);

  /// One update of the conversation's client. A malformed one is dropped.
  void handle(const JsonObject& update, const ThreadExecutionKey& key);

  /// The runtime plays a stored session back: the transcript is emptied and rebuilds itself.
  void replayStarted(const ThreadExecutionKey& key);
  /// It could not: the transcript is what it was.
  void replayFailed(const ThreadExecutionKey& key);
  /// The client has started. After a replay the rebuilt transcript stays, with the entries of the
  /// turn at hand, which the runtime does not know yet, at its end. A runtime that played nothing
  /// back takes nothing away. Without a replay nothing happens.
  void startSucceeded(const ThreadExecutionKey& key);

 private:
  enum class Outcome { handled, ignored, unknownKind };
  Outcome dispatch(std::string_view kind, const JsonObject& update, const ThreadExecutionKey& key,
                   ThreadExecutionRuntime& execution);
  /// True when a new entry was made.
  bool upsertTextEntry(const JsonObject& update, ChatEntryKind kind, const std::string& fallbackID,
                       const ThreadExecutionKey& key, const ThreadExecutionRuntime& execution);
  void upsertToolEntry(const JsonObject& update, const ThreadExecutionKey& key,
                       ThreadExecutionRuntime& execution);
  void rebuildPlan(const JsonObject& update, const ThreadExecutionKey& key,
                   ThreadExecutionRuntime& execution);
  void restoreUserWords(const Transcript& before, const ThreadExecutionKey& key);

  MainQueue& main_;
  WorkspaceTree& tree_;
  ExecutionTable& executions_;
  RunLifecycle& runs_;
};

}  // namespace vantrell
