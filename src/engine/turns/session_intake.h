// The consuming end of the update stream: turns each update of a running client into transcript
// entries, the plan and the marks of activity. What a resumed session plays back is collected apart
// and merged into the transcript at its end, so that nothing stored is lost. Main queue.
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

  /// The runtime plays a stored session back.
  void replayStarted(const ThreadExecutionKey& key);
  /// It could not; the transcript is what it was.
  void replayFailed(const ThreadExecutionKey& key);
  /// The client has started. What it has played back is merged with what is stored; the entries of
  /// the turn at hand, which the runtime does not know yet, stay at the end.
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
  /// To the conversation, or to what is being played back.
  void append(ChatEntry entry, const ThreadExecutionKey& key,
              const ThreadExecutionRuntime& execution);

  MainQueue& main_;
  WorkspaceTree& tree_;
  ExecutionTable& executions_;
  RunLifecycle& runs_;
};

}  // namespace vantrell
