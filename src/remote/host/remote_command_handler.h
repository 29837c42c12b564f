// Carries out what paired clients ask for, through the engine's operations, and tells them what has
// happened. A client is a second pair of hands on the same state: it moves the host's selection
// too. What it may not do is widen what agents are allowed without a person at this computer: Full
// Access and permanent permissions are refused. Replies go to all clients. Main queue.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "engine/core/engine_events.h"
#include "engine/core/refusal.h"
#include "records/values/imagine_item.h"
#include "remote/host/remote_attachment_store.h"
#include "remote/host/remote_output.h"

namespace vantrell {

class Approvals;
class BackgroundPool;
class Composer;
class ExecutionTable;
class ImagineController;
class Navigation;
class ProjectContextService;
class PromptQueue;
class Router;
class Selection;
class SessionControls;
class TaskBranches;
class TaskSafety;
class UsageReset;
class WorkspaceOperations;
class WorkspaceTree;

class RemoteCommandHandler : public std::enable_shared_from_this<RemoteCommandHandler> {
 public:
  static constexpr std::size_t mostRemembered = 1000;  // ids of handled messages
  static constexpr std::size_t forgottenAtOnce = 200;
  static constexpr std::size_t mediaChunk = 196'608;  // bytes before Base64

  /// What commands are carried out with. All must outlive it.
  struct Engine {
    const WorkspaceTree& tree;
    const Selection& selection;
    const ExecutionTable& executions;
    WorkspaceOperations& operations;
    Navigation& navigation;
    Composer& composer;
    PromptQueue& queue;
    TaskBranches& branches;
    Approvals& approvals;
    SessionControls& controls;
    Router& router;
    TaskSafety& safety;
    UsageReset& usageReset;
    ProjectContextService& context;
    ImagineController& imagine;
  };
  struct Dependencies {
    MainQueue& main;
    BackgroundPool& pool;  // reads and writes files
    RemoteOutput& output;
    Engine engine;
    std::function<void()> sendSnapshot;  // at once
    // Of the updates; empty where there are none.
    std::function<void()> requestUpdate = {};
    std::function<void(const std::string& decision)> decideUpdate = {};
  };
  explicit RemoteCommandHandler(Dependencies dependencies);

  /// A message of a client. Each id is carried out once, and acknowledged each time.
  void handle(const RemoteEnvelope& envelope);

  // What clients are notified of.

  void taskEvent(TaskEventKind kind, std::string_view message, const ThreadExecutionKey& key);
  void imagineEvent(ImagineEventKind kind, std::string_view message);

 private:
  struct Media {
    ImagineItem item;
    std::size_t next = 0;  // index of the chunk to be sent next
  };

  bool remember(const std::string& id);
  void carryOut(const RemoteEnvelope& envelope, RemoteMessageType type);
  bool carryOutForTask(const RemoteEnvelope& envelope, RemoteMessageType type);
  bool carryOutForProject(const RemoteEnvelope& envelope, RemoteMessageType type);
  bool carryOutForSession(const RemoteEnvelope& envelope, RemoteMessageType type);
  void carryOutForQueue(const RemoteEnvelope& envelope, RemoteMessageType type);
  void prompt(const RemoteEnvelope& envelope, const ThreadExecutionKey& key);
  void branch(const RemoteEnvelope& envelope, const ThreadExecutionKey& key, bool sends);
  void select(const Result<ThreadExecutionKey>& made);
  void cancel(const RemoteEnvelope& envelope);
  void answerQuestion(const RemoteEnvelope& envelope);
  void setPermissionMode(const RemoteEnvelope& envelope);
  void takeChunk(const RemoteEnvelope& envelope);
  void sendMedia(const Uuid& id);
  void sendNextChunk();

  bool isWorking() const;
  void refuse(std::string_view text);
  /// Tells clients why an operation was refused.
  void tell(const Result<>& result);
  std::function<void(Result<>)> teller();

  const Dependencies core_;
  RemoteAttachmentStore attachments_;
  std::set<std::string, std::less<>> handled_;
  std::deque<std::string> handledOrder_;  // oldest first
  std::deque<Media> media_;               // to be sent, the first is under way
  bool isSendingMedia_ = false;           // a chunk is being read, or waits at a client
};

/// What a path in a prompt names; a relative one is taken against the folder. Looks at the disk.
ChatAttachment remoteAttachment(std::string_view path, std::string_view folder);

}  // namespace vantrell
