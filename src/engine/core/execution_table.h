// The live state of every conversation, of the media generator, and the message that the user is
// shown. Main queue.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "engine/core/changes.h"
#include "engine/core/thread_execution_runtime.h"

namespace vantrell {

/// What others need to know of the media generator, which belongs to no conversation.
struct ImagineExecution {
  ConnectionState state;
  std::shared_ptr<const PermissionRequest> permissionRequest;
};

class ExecutionTable {
 public:
  ExecutionTable(MainQueue& main, Changes& changes);

  /// The live state of the conversation, made on demand.
  ThreadExecutionRuntime& execution(const ThreadExecutionKey& key);
  /// Null when the conversation has run nothing since start-up.
  ThreadExecutionRuntime* find(const ThreadExecutionKey& key);
  const ThreadExecutionRuntime* find(const ThreadExecutionKey& key) const;
  /// Of every conversation that has run something since start-up, in no order.
  std::vector<ThreadExecutionKey> keys() const;
  /// Takes the live state away; its client is still to be ended. Null where there is none.
  std::unique_ptr<ThreadExecutionRuntime> take(const ThreadExecutionKey& key);

  /// A prompt that is sent now would be queued.
  bool isBusy(const ThreadExecutionKey& key) const;
  bool hasOpenQuestion(const ThreadExecutionKey& key) const;
  /// What shapes a session may change: no turn runs and no question is open, in the conversation
  /// (absent: in none) and in the media generator.
  bool canChangeSession(const std::optional<ThreadExecutionKey>& key) const;
  /// Marks the live state as changed.
  void changed(const ThreadExecutionKey& key) { changes_.stateChanged(key); }

  const ImagineExecution& imagine() const { return imagine_; }
  void setImagine(ImagineExecution imagine);

  /// Shows the user why something did not work, until the next message, the next success or
  /// clearError(). For what has no caller to answer any more.
  void showError(std::string text);
  void clearError();
  /// The user has seen what was shown, which may have been the last failure of the conversation.
  void dismissError(const std::optional<ThreadExecutionKey>& shown);
  const std::optional<std::string>& errorMessage() const { return errorMessage_; }

  /// Holds back all that clients hand out, those that start later included, or lets it flow again:
  /// for an interface that cannot take more at the moment.
  void setReceiving(bool receiving);

 private:
  struct HashKey {
    std::size_t operator()(const ThreadExecutionKey& key) const noexcept {
      return key.threadID.hash() ^ (key.workspaceID.hash() * 31);
    }
  };

  MainQueue& main_;
  Changes& changes_;
  std::unordered_map<ThreadExecutionKey, std::unique_ptr<ThreadExecutionRuntime>, HashKey>
      executions_;
  ImagineExecution imagine_;
  std::optional<std::string> errorMessage_;
  bool isReceiving_ = true;
};

}  // namespace vantrell
