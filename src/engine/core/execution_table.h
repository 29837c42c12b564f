// The live state of every conversation, and the mirror of the selected one that the interface
// reads. The engine writes only the runtimes and then publishes; a background conversation never
// touches the mirror. Main queue.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

#include "engine/core/changes.h"
#include "engine/core/selection.h"
#include "engine/core/thread_execution_runtime.h"

namespace vantrell {

class ExecutionTable {
 public:
  ExecutionTable(MainQueue& main, Selection& selection, Changes& changes);

  /// The runtime of the conversation, made on demand.
  ThreadExecutionRuntime& execution(const ThreadExecutionKey& key);
  /// Null when the conversation has run nothing since start-up.
  ThreadExecutionRuntime* find(const ThreadExecutionKey& key);
  /// The conversation's runtime while `client` is its client, else null: the one guard against late
  /// events of a client that was replaced.
  ThreadExecutionRuntime* findServedBy(const std::shared_ptr<AgentClient>& client,
                                       const ThreadExecutionKey& key);

  /// Of every conversation that has run something since start-up, in no order.
  std::vector<ThreadExecutionKey> keys() const;

  /// What the interface sees.
  const ExecutionViewState& mirror() const { return mirror_; }
  const std::optional<ThreadExecutionKey>& mirroredExecutionKey() const { return mirroredKey_; }

  /// Shows the conversation's state in the mirror, or an idle one when there is none.
  void publishExecution(const std::optional<ThreadExecutionKey>& key);
  void publishExecutionIfSelected(const ThreadExecutionKey& key);
  /// Shows the user why something cannot be done.
  void showError(std::string text);
  /// Adds to the log that is shown: words of the media generator, which belongs to no conversation.
  void appendToShownLog(std::string_view text);
  void clearError();
  /// Says that what the interface shows of the selected conversation has changed.
  void announceMirror();
  /// A question of the media generator: shown wherever the selected conversation has none of its
  /// own, until it is closed.
  void openImagineQuestion(PermissionRequest request);
  void closeImagineQuestion();
  /// Writes the mirror back to the runtime that it shows. A question of the media generator stays
  /// out.
  void captureMirroredExecution();
  /// Selects, stores the selection and publishes it. Observers hear of the entry, where one is to
  /// be brought into view.
  void selectExecution(std::optional<Uuid> workspaceID, std::optional<Uuid> threadID,
                       std::optional<std::string> entryID = std::nullopt);
  /// Stops the selected conversation's client and forgets its live state, so that the next turn
  /// starts a new client under the present settings. A turn that is under way ends with it.
  void resetConnection();
  /// Ends the client of the conversation and forgets its live state. What the transcript was before
  /// an unfinished replay, it is again.
  void remove(const ThreadExecutionKey& key);
  /// The same for every conversation, for the end of the program.
  void removeAll();
  /// A conversation's client has been ended for good. Set once, by the owner of the transcripts.
  std::function<void(ThreadExecutionRuntime&, const ThreadExecutionKey&)> onEnded;
  /// A run was under way in a live state that is forgotten, and nobody would ever end it. Not at
  /// the end of the program: the next start tells of those. Set once, by the owner of the runs.
  std::function<void(const Uuid& runID, const ThreadExecutionKey&)> onRunAbandoned;
  /// Holds back all that clients hand out, those that start later included, or lets it flow again:
  /// for an interface that cannot take more at the moment.
  void setReceiving(bool receiving);
  bool isReceiving() const { return isReceiving_; }

 private:
  struct HashKey {
    std::size_t operator()(const ThreadExecutionKey& key) const noexcept {
      return key.threadID.hash() ^ (key.workspaceID.hash() * 31);
    }
  };

  MainQueue& main_;
  Selection& selection_;
  Changes& changes_;
  std::unordered_map<ThreadExecutionKey, std::unique_ptr<ThreadExecutionRuntime>, HashKey>
      executions_;
  void end(ThreadExecutionRuntime& runtime, const ThreadExecutionKey& key);
  void showImagineQuestionIfFree();

  bool isReceiving_ = true;
  std::shared_ptr<const PermissionRequest> imagineQuestion_;
  ExecutionViewState mirror_;
  std::optional<ThreadExecutionKey> mirroredKey_;
};

}  // namespace vantrell
