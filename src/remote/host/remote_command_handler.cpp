#include "remote/host/remote_command_handler.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "engine/core/execution_table.h"
#include "engine/core/selection.h"
#include "engine/core/workspace_tree.h"
#include "engine/imagine/imagine_controller.h"
#include "engine/projects/project_context_service.h"
#include "engine/projects/task_safety.h"
#include "engine/providers/router.h"
#include "engine/providers/session_controls.h"
#include "engine/tasks/navigation.h"
#include "engine/tasks/task_branches.h"
#include "engine/tasks/workspace_operations.h"
#include "engine/turns/approvals.h"
#include "engine/turns/composer.h"
#include "engine/turns/prompt_assembly.h"
#include "engine/turns/prompt_queue.h"
#include "engine/turns/usage_reset.h"
#include "platform/crypto/crypto.h"
#include "platform/files/files.h"
#include "platform/queues/weakly.h"
#include "remote/host/remote_snapshot_state.h"
#include "views/approval_card.h"
#include "views/attachments.h"

namespace vantrell {

namespace {

using Type = RemoteMessageType;

std::optional<Uuid> uuid(const std::optional<std::string>& text) {
  return text ? Uuid::parse(*text) : std::nullopt;
}

std::optional<ThreadExecutionKey> keyOf(const RemoteEnvelope& envelope) {
  const auto workspaceID = uuid(envelope.workspaceID), threadID = uuid(envelope.threadID);
  if (!workspaceID || !threadID) return std::nullopt;
  return ThreadExecutionKey{*workspaceID, *threadID};
}

template <typename Enumeration>
std::optional<Enumeration> valueOf(const std::optional<std::string>& text) {
  return text ? fromRawText<Enumeration>(*text) : std::nullopt;
}

bool isText(const std::optional<std::string>& text, const std::optional<Uuid>& id) {
  return id ? text == id->text() : !text;
}

std::string_view mimeTypeOf(std::string_view extension) {
  constexpr std::pair<std::string_view, std::string_view> types[] = {
      {"png", "image/png"}, {"webp", "image/webp"}, {"gif", "image/gif"},
      {"mp4", "video/mp4"}, {"m4v", "video/mp4"},   {"mov", "video/quicktime"}};
  const auto* found =
      std::ranges::find(types, extension, [](const auto& each) { return each.first; });
  return found == std::end(types) ? "image/jpeg" : found->second;
}

/// The bytes at that place, as Base64; nullopt where the file cannot be read. Any thread.
std::optional<std::string> chunkOf(const std::string& path, std::size_t offset, std::size_t most) {
  std::ifstream file(path, std::ios::binary);
  std::string bytes(most, '\0');
  if (!file.seekg(static_cast<std::streamoff>(offset))) return std::nullopt;
  file.read(bytes.data(), static_cast<std::streamsize>(most));
  if (file.bad()) return std::nullopt;
  bytes.resize(static_cast<std::size_t>(file.gcount()));
  return crypto::base64({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
}

std::size_t chunksOf(std::size_t bytes) {
  constexpr auto each = RemoteCommandHandler::mediaChunk;
  return std::max<std::size_t>((bytes + each - 1) / each, 1);
}

}  // namespace

RemoteCommandHandler::RemoteCommandHandler(Dependencies dependencies)
    : core_(std::move(dependencies)) {}

void RemoteCommandHandler::handle(const RemoteEnvelope& envelope) {
  const auto type = envelope.knownType();
  if (type == Type::ack) return;
  if (type == Type::hello || type == Type::refresh) return core_.sendSnapshot();
  if (remember(envelope.id) && type) carryOut(envelope, *type);
  auto ack = RemoteEnvelope::make(Type::ack);
  ack.acknowledgesID = envelope.id;
  core_.output.send(std::move(ack));
}

/// False for one that was handled before.
bool RemoteCommandHandler::remember(const std::string& id) {
  if (!handled_.insert(id).second) return false;
  if (handledOrder_.size() >= mostRemembered) {
    for (std::size_t i = 0; i < forgottenAtOnce; ++i) {
      handled_.erase(handledOrder_.front());
      handledOrder_.pop_front();
    }
  }
  handledOrder_.push_back(id);
  return true;
}

void RemoteCommandHandler::refuse(std::string_view text) {
  auto error = RemoteEnvelope::make(Type::error);
  error.text = text;
  core_.output.send(std::move(error));
}

void RemoteCommandHandler::tell(const Result<>& result) {
  if (!result) refuse(result.error().sentence);
}

std::function<void(Result<>)> RemoteCommandHandler::teller() {
  return weakly(this,
                [](RemoteCommandHandler& self, const Result<>& result) { self.tell(result); });
}

bool RemoteCommandHandler::isWorking() const {
  const auto key = core_.engine.selection.key();
  const auto* execution = key ? core_.engine.executions.find(*key) : nullptr;
  return execution && execution->connectionState.kind == ConnectionState::Kind::working;
}

// ---- commands -----------------------------------------------------------------------------------

void RemoteCommandHandler::carryOut(const RemoteEnvelope& e, RemoteMessageType type) {
  if (carryOutForTask(e, type) || carryOutForProject(e, type) || carryOutForSession(e, type)) {
    return;
  }
  switch (type) {
    case Type::queueRemove:
    case Type::queueRunNext:
    case Type::queueClear: return carryOutForQueue(e, type);
    case Type::cancel: return cancel(e);
    case Type::permissionResponse: return answerQuestion(e);
    case Type::imagineGenerate:
      if (const auto kind = valueOf<ImagineKind>(e.mediaKind); kind && e.text) {
        core_.engine.navigation.setSection(AppSection::imagine);
        tell(core_.engine.imagine.generateImagine(*e.text, *kind));
      }
      return;
    case Type::mediaRequest:
      if (const auto id = uuid(e.mediaID)) sendMedia(*id);
      return;
    case Type::hostUpdateRequest:
      return core_.requestUpdate ? core_.requestUpdate()
                                 : refuse("The Mac updater is not ready yet.");
    case Type::hostUpdateDecision:
      if (e.optionID && core_.decideUpdate) core_.decideUpdate(*e.optionID);
      return;
    default: return;  // what only a host sends
  }
}

/// The commands about one task that they name. False for another one.
bool RemoteCommandHandler::carryOutForTask(const RemoteEnvelope& e, RemoteMessageType type) {
  switch (type) {
    case Type::selectThread:
    case Type::prompt:
    case Type::branchThread:
    case Type::branchAndSend:
    case Type::renameThread:
    case Type::moveThread:
    case Type::setThreadPinned:
    case Type::setThreadArchived:
    case Type::deleteThread:
    case Type::attachmentChunk: break;
    default: return false;
  }
  const auto key = keyOf(e);
  if (!key) return true;
  auto& operations = core_.engine.operations;
  const auto& [workspaceID, threadID] = *key;
  const ChatThread* thread = core_.engine.tree.thread(*key);
  switch (type) {
    case Type::selectThread:
      tell(core_.engine.navigation.selectThread(threadID, workspaceID));
      break;
    case Type::prompt:
      if (e.text) prompt(e, *key);
      break;
    case Type::branchThread:
      if (thread && e.entryID) branch(e, *key, false);
      break;
    case Type::branchAndSend:
      if (thread && e.entryID && e.text) branch(e, *key, true);
      break;
    case Type::renameThread:
      if (e.text) tell(operations.renameThread(threadID, workspaceID, *e.text));
      break;
    case Type::moveThread:
      if (const auto to = uuid(e.destinationWorkspaceID)) {
        const auto moved = operations.moveThread(threadID, workspaceID, *to);
        tell(moved);
        if (!moved) core_.sendSnapshot();
      }
      break;
    case Type::setThreadPinned:
      if (thread && e.isPinned && thread->isPinned != *e.isPinned) {
        tell(operations.toggleThreadPin(threadID, workspaceID));
      }
      break;
    case Type::setThreadArchived:
      if (e.isArchived) tell(operations.setThreadArchived(threadID, workspaceID, *e.isArchived));
      break;
    case Type::deleteThread:
      if (thread) tell(operations.deleteThread(threadID, workspaceID));
      break;
    default:
      if (thread && e.mediaID) takeChunk(e);
  }
  return true;
}

bool RemoteCommandHandler::carryOutForProject(const RemoteEnvelope& e, RemoteMessageType type) {
  const auto id = uuid(e.workspaceID);
  switch (type) {
    case Type::newThread:
      tell(core_.engine.operations.newThread(id ? id : core_.engine.selection.workspaceID()));
      return true;
    case Type::setWorkspacePinned:
      if (id && e.isPinned) tell(core_.engine.operations.setWorkspacePinned(*id, *e.isPinned));
      return true;
    case Type::setWorkspaceInstructions:
      if (id && e.text) tell(core_.engine.context.setProjectInstructions(*e.text, *id));
      return true;
    case Type::archiveWorkspaceThreads:
      if (id) tell(core_.engine.operations.archiveWorkspaceThreads(*id));
      return true;
    default: return false;
  }
}

/// The commands about how the selected task works. False for another one.
bool RemoteCommandHandler::carryOutForSession(const RemoteEnvelope& e, RemoteMessageType type) {
  const auto key = core_.engine.selection.key();
  const bool canChange = core_.engine.approvals.canChangePermissionMode(key);
  switch (type) {
    case Type::setPermissionMode: setPermissionMode(e); return true;
    case Type::setProviderMode:
      if (const auto mode = valueOf<ProviderRoutingMode>(e.providerMode)) {
        if (!canChange) {
          refuse("Wait for the agent to finish before changing providers.");
        } else {
          tell(core_.engine.router.setRoutingMode(*mode, key));
        }
      }
      return true;
    case Type::setSessionModel:
    case Type::setSessionEffort: {
      const bool isModel = type == Type::setSessionModel;
      const auto& chosen = isModel ? e.modelID : e.effort;
      if (!chosen) return true;
      if (!canChange) {
        refuse(isModel ? "Wait for the agent to finish before changing models."
                       : "Wait for the agent to finish before changing effort.");
      } else if (key) {
        const auto provider = core_.engine.controls.sessionConfigurationProvider(key);
        tell(isModel ? core_.engine.controls.chooseModel(provider, *key, *chosen)
                     : core_.engine.controls.chooseEffort(provider, *key, *chosen));
      }
      return true;
    }
    case Type::setWorkflowMode:
      if (!e.workflowMode) return true;
      if (const auto mode = valueOf<TaskWorkflowMode>(e.workflowMode); mode && canChange) {
        tell(core_.engine.approvals.setWorkflowMode(*mode, key));
      } else {
        refuse("Wait for the agent to finish before changing task mode.");
      }
      return true;
    case Type::setTaskWorkspaceMode:
      if (const auto mode = valueOf<TaskWorkspaceMode>(e.workspaceMode); mode && key) {
        if (isWorking()) {
          refuse("Wait for the agent to finish before changing workspace isolation.");
        } else {
          core_.engine.safety.setTaskWorkspaceMode(*key, *mode, teller());
        }
      }
      return true;
    case Type::createCheckpoint:
      if (isWorking()) {
        refuse("Wait for the agent to finish before creating a manual checkpoint.");
      } else if (key) {
        core_.engine.safety.createCheckpoint(*key, e.text.value_or("Remote checkpoint"), teller());
      }
      return true;
    case Type::providerHandoff: {
      const auto to = valueOf<AgentProvider>(e.providerMode);
      const auto scope = valueOf<ProviderHandoffScope>(e.handoffScope);
      if (to && scope && key) tell(core_.engine.router.handoff(*to, *scope, *key));
      return true;
    }
    case Type::usageRefresh: core_.engine.controls.refreshSessionUsage(key); return true;
    case Type::usageReset:
      if (key) tell(core_.engine.usageReset.resetSessionUsage(*key));
      return true;
    default: return false;
  }
}

/// Queues are touched only for the task that is selected on the host.
void RemoteCommandHandler::carryOutForQueue(const RemoteEnvelope& e, RemoteMessageType type) {
  const auto key = core_.engine.selection.key();
  if (!key || !isText(e.workspaceID, key->workspaceID) || !isText(e.threadID, key->threadID)) {
    return;
  }
  if (type == Type::queueRunNext) return tell(core_.engine.composer.runNextQueuedPrompt(*key));
  if (type == Type::queueClear) return tell(core_.engine.queue.clearQueuedPrompts(*key));
  if (const auto id = uuid(e.queuePromptID)) tell(core_.engine.queue.removeQueuedPrompt(*id, *key));
}

void RemoteCommandHandler::prompt(const RemoteEnvelope& e, const ThreadExecutionKey& key) {
  const auto selected = core_.engine.navigation.selectThread(key.threadID, key.workspaceID);
  if (!selected) return tell(selected);
  const auto parsed = ChatAttachmentPrompt::parse(*e.text);
  const auto folder = core_.engine.tree.executionPath(key).value_or("");
  std::vector<ChatAttachment> attachments;
  for (const auto path : parsed.paths) attachments.push_back(remoteAttachment(path, folder));
  tell(core_.engine.composer.send(parsed.request, std::move(attachments), key));
}

void RemoteCommandHandler::branch(const RemoteEnvelope& e, const ThreadExecutionKey& key,
                                  bool sends) {
  std::optional<AgentProvider> provider;
  if (sends && e.providerID) {
    provider = fromRawText<AgentProvider>(*e.providerID);
    if (!provider || !core_.engine.router.providerAvailable(*provider)) {
      return refuse("The requested retry provider is not available on this Mac.");
    }
  }
  core_.engine.branches.whenRead(
      key, weakly(this, [sends, provider, entryID = *e.entryID, text = e.text.value_or("")](
                            RemoteCommandHandler& self, const ThreadExecutionKey& at) {
        const ChatThread* thread = self.core_.engine.tree.thread(at);
        if (!thread || !thread->entries.find(entryID)) return;
        self.select(sends ? self.core_.engine.branches.branchAndSend(at, entryID, text, provider)
                          : self.core_.engine.branches.forkThread(at, entryID));
      }));
}

void RemoteCommandHandler::select(const Result<ThreadExecutionKey>& made) {
  if (!made) return refuse(made.error().sentence);
  tell(core_.engine.navigation.selectThread(made->threadID, made->workspaceID));
}

void RemoteCommandHandler::cancel(const RemoteEnvelope& e) {
  if (e.mediaKind == "image" || e.mediaKind == "imagine")
    return core_.engine.imagine.cancelImagine();
  const auto key = core_.engine.selection.key();
  if (!key || (e.threadID && !isText(e.threadID, key->threadID))) return;
  tell(core_.engine.composer.stopWorking(*key));
}

/// Only for once, whatever the agent offers.
void RemoteCommandHandler::answerQuestion(const RemoteEnvelope& e) {
  const auto question = remoteQuestion(core_.engine.executions, core_.engine.selection);
  if (!question.request || e.requestID != question.request->id || !e.optionID) return;
  const auto options = views::optionsForDevices(*question.request);
  if (std::ranges::find(options, *e.optionID, &PermissionOption::id) == options.end()) return;
  constexpr auto answerer = Approvals::Answerer::standingOrder;
  tell(question.key ? core_.engine.approvals.respondToPermission(*question.key, *e.requestID,
                                                                 *e.optionID, answerer)
                    : core_.engine.approvals.respondToImaginePermission(*e.requestID, *e.optionID,
                                                                        answerer));
}

void RemoteCommandHandler::setPermissionMode(const RemoteEnvelope& e) {
  const auto mode = valueOf<GrokPermissionMode>(e.permissionMode);
  if (!mode) return;
  if (*mode == GrokPermissionMode::fullAccess) {
    return refuse("Full Access can only be enabled on the Mac after confirmation.");
  }
  const auto key = core_.engine.selection.key();
  if (!core_.engine.approvals.canChangePermissionMode(key)) {
    return refuse("Wait for the agent to finish before changing permission mode.");
  }
  tell(core_.engine.approvals.setPermissionMode(*mode, key));
}

// ---- files --------------------------------------------------------------------------------------

ChatAttachment remoteAttachment(std::string_view path, std::string_view folder) {
  const std::string resolved =
      path.starts_with('/') ? std::string(path) : std::string(folder) + "/" + std::string(path);
  ChatAttachment attachment;
  attachment.id = Uuid::random();
  if (auto found = views::attachmentFor(resolved)) {
    attachment = std::move(*found);
  } else if (views::pictureTypeOf(resolved)) {
    attachment.kind = ChatAttachmentKind::image;
  }
  attachment.contentType.reset();
  attachment.displayName = files::lastComponent(resolved);
  attachment.path = path;
  return attachment;
}

void RemoteCommandHandler::takeChunk(const RemoteEnvelope& e) {
  auto reply = RemoteEnvelope::make(Type::attachmentError);
  reply.workspaceID = e.workspaceID;
  reply.threadID = e.threadID;
  reply.mediaID = e.mediaID;
  reply.fileName = e.fileName;
  auto upload = attachments_.ingest(e);
  if (!upload) {
    reply.text = RemoteAttachmentStore::description(upload.error());
    return core_.output.send(std::move(reply));
  }
  if (!*upload) return;
  const std::string folder = core_.engine.tree.workspace(*uuid(e.workspaceID))->path;
  core_.pool.post([upload = std::move(**upload), folder, reply = std::move(reply),
                   &main = core_.main,
                   send = weakly(this, [](RemoteCommandHandler& self, RemoteEnvelope& made) {
                     self.core_.output.send(std::move(made));
                   })]() mutable {
    if (const auto written = upload.write(folder); !written) {
      reply.text = written.error();
    } else {
      reply.type = rawText(Type::attachmentReady);
      reply.fileName = upload.fileName;
      reply.text = upload.relativePath;
    }
    main.post([send = std::move(send), reply = std::move(reply)]() mutable { send(reply); });
  });
}

void RemoteCommandHandler::sendMedia(const Uuid& id) {
  const auto& items = core_.engine.imagine.imagineItems();
  const auto found = std::ranges::find(items, id, &ImagineItem::id);
  if (found == items.end()) return;
  // A client that asks again for what is about to be sent gets it once.
  if (std::ranges::any_of(
          media_, [&](const Media& each) { return each.item.id == id && each.next == 0; })) {
    return;
  }
  media_.push_back({*found});
  if (!std::exchange(isSendingMedia_, true)) sendNextChunk();
}

/// Reads and sends one chunk; the next one follows when no client has it waiting.
void RemoteCommandHandler::sendNextChunk() {
  isSendingMedia_ = !media_.empty();
  if (!isSendingMedia_) return;
  const auto& media = media_.front();
  core_.pool.post([path = media.item.localPath, index = media.next, &main = core_.main,
                   send = weakly(this, [](RemoteCommandHandler& self, std::size_t count,
                                          std::optional<std::string>& data) {
                     auto& sent = self.media_.front();
                     if (!data || sent.next >= count) {  // it has gone, or was cut short
                       self.media_.pop_front();
                       return self.sendNextChunk();
                     }
                     auto chunk = RemoteEnvelope::make(Type::mediaChunk);
                     chunk.mediaID = sent.item.id.text();
                     chunk.mediaKind = rawText(sent.item.kind);
                     chunk.mimeType = mimeTypeOf(mediaExtension(sent.item.localPath));
                     chunk.fileName = sent.item.fileName;
                     chunk.chunkIndex = static_cast<std::int64_t>(sent.next);
                     chunk.chunkCount = static_cast<std::int64_t>(count);
                     chunk.data = std::move(*data);
                     if (++sent.next == count) self.media_.pop_front();
                     self.core_.output.send(
                         std::move(chunk),
                         weakly(&self, [](RemoteCommandHandler& then) { then.sendNextChunk(); }));
                   })]() mutable {
    std::error_code unreadable;
    const auto size = std::filesystem::file_size(path, unreadable);
    auto data = unreadable ? std::nullopt : chunkOf(path, index * mediaChunk, mediaChunk);
    main.post([send = std::move(send), count = unreadable ? 0 : chunksOf(size),
               data = std::move(data)]() mutable { send(count, data); });
  });
}

// ---- events -------------------------------------------------------------------------------------

void RemoteCommandHandler::taskEvent(TaskEventKind kind, std::string_view message,
                                     const ThreadExecutionKey& key) {
  const ChatThread* thread = core_.engine.tree.thread(key);
  auto event = RemoteEnvelope::make(Type::taskEvent);
  event.eventKind = kind == TaskEventKind::completed ? "completed" : "needs_attention";
  event.title = thread ? thread->title : "Task";
  event.text = message;
  event.workspaceID = key.workspaceID.text();
  event.threadID = key.threadID.text();
  core_.output.send(std::move(event));
}

void RemoteCommandHandler::imagineEvent(ImagineEventKind kind, std::string_view message) {
  auto event = RemoteEnvelope::make(Type::taskEvent);
  event.eventKind = kind == ImagineEventKind::completed ? "imagine_completed" : "imagine_attention";
  event.title = "Imagine creation";
  event.text = message;
  core_.output.send(std::move(event));
}

}  // namespace vantrell
