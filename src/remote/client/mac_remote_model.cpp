#include "remote/client/mac_remote_model.h"

#include <algorithm>
#include <filesystem>
#include <fmt/format.h>
#include <set>

#include "engine/turns/prompt_assembly.h"
#include "platform/crypto/crypto.h"
#include "platform/files/files.h"
#include "platform/queues/weakly.h"
#include "platform/text/text.h"
#include "remote/client/remote_pairing_store.h"
#include "remote/client/remote_records.h"
#include "views/attachments.h"

namespace vantrell {

using Kind = MacRemoteConnectionState::Kind;
using Type = RemoteMessageType;
using Status = MacRemoteDraftAttachment::Status;

namespace {

/// A file in pieces for the host.
struct UploadContent {
  std::vector<std::string> chunks;  // Base64
  std::optional<std::string> mimeType;
};

/// Blocks. The error is a sentence.
std::expected<UploadContent, std::string> readUpload(const std::string& path) {
  std::error_code unknown;
  const auto size = std::filesystem::file_size(path, unknown);
  if (!unknown && size > MacRemoteModel::longestAttachment) {
    return std::unexpected("Attachments are limited to 20 MB each.");
  }
  const auto content = files::read(path, MacRemoteModel::longestAttachment);
  if (!content) return std::unexpected(content.error().description);
  UploadContent upload;
  if (const auto known = views::attachmentFor(path)) upload.mimeType = known->contentType;
  std::string_view rest = *content;
  do {
    const auto chunk = rest.substr(0, MacRemoteModel::attachmentChunk);
    upload.chunks.push_back(
        crypto::base64({reinterpret_cast<const std::uint8_t*>(chunk.data()), chunk.size()}));
    rest.remove_prefix(chunk.size());
  } while (!rest.empty());
  return upload;
}

template <typename Record>
const Record* withID(const std::vector<Record>& records, const std::optional<std::string>& id) {
  const auto found = id ? std::ranges::find(records, *id, &Record::id) : records.end();
  return found == records.end() ? nullptr : &*found;
}

std::string draftKey(const std::string& host, const std::string& workspaceID,
                     const std::string& threadID) {
  return host + "|" + workspaceID + "|" + threadID;
}

RemoteEnvelope of(Type type, const std::optional<std::string>& workspaceID,
                  const std::optional<std::string>& threadID) {
  auto envelope = RemoteEnvelope::make(type);
  envelope.workspaceID = workspaceID;
  envelope.threadID = threadID;
  return envelope;
}

}  // namespace

// ---- the connection -----------------------------------------------------------------------------

std::shared_ptr<MacRemoteModel> MacRemoteModel::make(Dependencies dependencies, Callbacks callbacks,
                                                     bool autoConnect) {
  std::shared_ptr<MacRemoteModel> model(
      new MacRemoteModel(std::move(dependencies), std::move(callbacks)));
  model->begin(autoConnect);
  return model;
}

MacRemoteModel::MacRemoteModel(Dependencies dependencies, Callbacks callbacks)
    : dependencies_(std::move(dependencies)),
      callbacks_(std::move(callbacks)),
      client_(MacRemoteClient::make(dependencies_.main, dependencies_.pool,
                                    dependencies_.trustedCertificates)),
      resolver_(dependencies_.main, dependencies_.pool, dependencies_.trustedCertificates),
      drafts_(dependencies_.supportFolder, dependencies_.main, dependencies_.pool) {}

void MacRemoteModel::begin(bool autoConnect) {
  client_->onStateChange =
      weakly(this, [](MacRemoteModel& model, const MacRemoteConnectionState& state) {
        model.state_.connectionState = state;
        model.changed();
      });
  client_->onReady =
      weakly(this, [](MacRemoteModel& model) { model.send(RemoteEnvelope::make(Type::hello)); });
  client_->onMessage = weakly(this, [](MacRemoteModel& model, RemoteEnvelope envelope) {
    model.handle(std::move(envelope));
  });
  dependencies_.store.load(
      weakly(this, [autoConnect](MacRemoteModel& model, const std::optional<std::string>& link) {
        model.state_.isStoredPairingRead = true;
        // Else the user was faster.
        if (!link || !model.state_.pairingInput.empty()) return model.changed();
        model.state_.pairingInput = *link;
        const auto pairing = MacRemotePairing::parse(*link);
        if (pairing) model.state_.pairingName = pairing->name;
        if (pairing && autoConnect) model.client_->start(*pairing);
        model.changed();
      }));
}

void MacRemoteModel::setPairingInput(std::string text) {
  state_.pairingInput = std::move(text);
  changed();
}

void MacRemoteModel::connect() {
  resolver_.cancel();
  const std::string text(text::trimmed(state_.pairingInput));
  const auto code = RemotePairingCode::normalize(text);
  if (!code || text.contains("://")) return connectPairingLink(text);
  client_->stop();
  if (!dependencies_.relayURL) {
    return failPairing("No relay is set, and only a relay knows pairing codes. Use the link.");
  }
  state_.connectionState = {Kind::connecting, std::nullopt, ""};
  state_.errorMessage = std::nullopt;
  changed();
  resolver_.resolve(
      *code, *dependencies_.relayURL,
      weakly(this, [](MacRemoteModel& model,
                      const std::expected<std::string, RemotePairingCodeError>& link) {
        if (!link) return model.failPairing(link.error().description);
        model.connectPairingLink(*link);
      }));
}

void MacRemoteModel::connectPairingLink(const std::string& text) {
  const auto pairing = MacRemotePairing::parse(text);
  if (!pairing) return failPairing(errorDescription(pairing.error()));
  state_.pairingInput = pairing->link;
  state_.pairingName = pairing->name;
  state_.errorMessage = std::nullopt;
  dependencies_.store.save(
      pairing->link, weakly(this, [](MacRemoteModel& model, bool isSaved) {
        if (isSaved) return;
        model.showError(
            "Connected, but vantrell could not securely save this host. Check Application Support "
            "permissions before relaunching.");
      }));
  client_->start(*pairing);
}

void MacRemoteModel::failPairing(std::string_view message) {
  state_.connectionState = {Kind::failed, std::nullopt, std::string(message)};
  showError(std::string(message));
}

void MacRemoteModel::reconnect() {
  if (!state_.pairingInput.empty()) connect();
}

void MacRemoteModel::disconnect(bool forget) {
  resolver_.cancel();
  forgetSnapshot();
  state_.selectedWorkspaceID = state_.selectedThreadID = std::nullopt;
  if (forget) {
    drafts_.prune(hostID() + "|", [](const auto&) { return false; });
    state_.pairingInput.clear();
    state_.pairingName = "Host Mac";
    dependencies_.store.remove();
  }
  client_->stop();  // which reports the change
}

std::string MacRemoteModel::hostID() const {
  const auto pairing = MacRemotePairing::parse(state_.pairingInput);
  return pairing ? pairing->pairID : state_.pairingName;
}

void MacRemoteModel::changed() {
  if (callbacks_.onChange) callbacks_.onChange();
}

void MacRemoteModel::showError(std::string text) {
  state_.errorMessage = std::move(text);
  changed();
}

// ---- messages -----------------------------------------------------------------------------------

bool MacRemoteModel::send(RemoteEnvelope envelope) {
  if (state_.connectionState.kind != Kind::connected) {
    showError("Reconnect to the host Mac before sending commands.");
    return false;
  }
  client_->send(std::move(envelope));
  return true;
}

void MacRemoteModel::handle(RemoteEnvelope envelope) {
  const auto type = envelope.knownType();
  if (type == Type::snapshot && envelope.snapshot) {
    store(std::move(*envelope.snapshot));
    envelope.snapshot = std::nullopt;
  } else if (type == Type::error) {
    showError(envelope.text.value_or("The host Mac could not complete that action."));
  } else if (type == Type::attachmentReady) {
    setStatus(envelope.mediaID, Status::ready, envelope.text.value_or(""));
  } else if (type == Type::attachmentError) {
    setStatus(envelope.mediaID, Status::failed, envelope.text.value_or("Upload failed."));
  } else if (type == Type::taskEvent && callbacks_.notify) {
    callbacks_.notify({.kind = envelope.eventKind.value_or("needs_attention"),
                       .title = envelope.title.value_or("Host task"),
                       .message = envelope.text.value_or("The host task needs attention."),
                       .workspaceID = envelope.workspaceID,
                       .threadID = envelope.threadID});
  }
  if (callbacks_.onMessage) callbacks_.onMessage(envelope);
}

void MacRemoteModel::store(RemoteSnapshot snapshot) {
  forgetSnapshot();
  state_.snapshot = std::make_shared<const RemoteSnapshot>(std::move(snapshot));
  pruneComposerDrafts();
  reconcileSelection();
  changed();
}

/// Freeing a large one takes longer than the main queue has.
void MacRemoteModel::forgetSnapshot() {
  if (!state_.snapshot) return;
  dependencies_.pool.post([old = std::exchange(state_.snapshot, nullptr)] {});
}

void MacRemoteModel::reconcileSelection() {
  const auto& snapshot = *state_.snapshot;
  auto& workspaceID = state_.selectedWorkspaceID;
  auto& threadID = state_.selectedThreadID;
  if (!selectedWorkspace()) {
    workspaceID = snapshot.selectedWorkspaceID;
    if (!workspaceID && !snapshot.workspaces.empty()) workspaceID = snapshot.workspaces[0].id;
  }
  if (selectedThread()) return;
  const auto* const theirs = withID(snapshot.workspaces, snapshot.selectedWorkspaceID);
  if (theirs && withID(theirs->threads, snapshot.selectedThreadID)) {
    workspaceID = snapshot.selectedWorkspaceID;
    threadID = snapshot.selectedThreadID;
    return;
  }
  const auto* const ours = selectedWorkspace();
  threadID = std::nullopt;
  if (ours && !ours->threads.empty()) threadID = ours->threads[0].id;
}

void MacRemoteModel::pruneComposerDrafts() {
  if (drafts_.drafts().empty()) return;
  const std::string host = hostID();
  std::set<std::string> keys;
  for (const auto& workspace : state_.snapshot->workspaces) {
    for (const auto& thread : workspace.threads) {
      keys.insert(draftKey(host, workspace.id, thread.id));
    }
  }
  drafts_.prune(host + "|", [&](const std::string& key) { return keys.contains(key); });
}

// ---- what is shown ------------------------------------------------------------------------------

const RemoteWorkspace* MacRemoteModel::selectedWorkspace() const {
  return state_.snapshot ? withID(state_.snapshot->workspaces, state_.selectedWorkspaceID)
                         : nullptr;
}

const RemoteThread* MacRemoteModel::selectedThread() const {
  const auto* const workspace = selectedWorkspace();
  return workspace ? withID(workspace->threads, state_.selectedThreadID) : nullptr;
}

const RemoteRunActivity* MacRemoteModel::selectedActivity() const {
  if (!state_.snapshot || !state_.snapshot->activities) return nullptr;
  const auto& activities = *state_.snapshot->activities;
  const auto found = std::ranges::find_if(activities, [this](const RemoteRunActivity& activity) {
    return activity.workspaceID == state_.selectedWorkspaceID &&
           activity.threadID == state_.selectedThreadID;
  });
  return found == activities.end() ? nullptr : &*found;
}

std::vector<ChatEntry> MacRemoteModel::entries() const {
  std::vector<ChatEntry> entries;
  const auto* const thread = selectedThread();
  if (!thread) return entries;
  for (const auto& each : thread->entries) {
    if (auto entry = recordOf(each)) entries.push_back(std::move(*entry));
  }
  return entries;
}

bool MacRemoteModel::isHostWorking() const {
  return state_.snapshot && (state_.snapshot->connectionStatus == "working" ||
                             state_.snapshot->connectionStatus == "connecting");
}

void MacRemoteModel::selectThread(const std::string& id, const std::string& workspaceID) {
  state_.draftAttachments.clear();
  state_.transcriptNavigation = std::nullopt;
  state_.selectedWorkspaceID = workspaceID;
  state_.selectedThreadID = id;
  changed();
  send(ofSelection(Type::selectThread));
}

void MacRemoteModel::newThread(std::optional<std::string> workspaceID) {
  state_.draftAttachments.clear();
  if (!workspaceID) workspaceID = state_.selectedWorkspaceID;
  if (!workspaceID && state_.snapshot) workspaceID = state_.snapshot->selectedWorkspaceID;
  state_.selectedWorkspaceID = std::move(workspaceID);
  state_.selectedThreadID = std::nullopt;
  changed();
  send(ofSelection(Type::newThread));
}

void MacRemoteModel::selectAdjacentRecentTask(int offset) {
  struct Reference {
    double updatedAt;
    std::string workspaceID, threadID;
  };
  std::vector<Reference> recent;
  if (state_.snapshot) {
    for (const auto& workspace : state_.snapshot->workspaces) {
      for (const auto& thread : workspace.threads) {
        if (!thread.isArchived.value_or(false)) {
          recent.push_back({thread.updatedAt, workspace.id, thread.id});
        }
      }
    }
  }
  if (recent.size() < 2 || offset == 0) return;
  std::ranges::stable_sort(recent, std::greater(), &Reference::updatedAt);
  const auto count = static_cast<std::int64_t>(recent.size());
  const auto current = std::ranges::find_if(recent, [this](const Reference& each) {
    return each.workspaceID == state_.selectedWorkspaceID &&
           each.threadID == state_.selectedThreadID;
  });
  const std::int64_t base = current != recent.end() ? current - recent.begin()
                            : offset > 0            ? -1
                                                    : 0;
  const auto next = recent.begin() + ((base + offset) % count + count) % count;
  if (next != current) selectThread(next->threadID, next->workspaceID);
}

void MacRemoteModel::navigateTranscript(std::string entryID) {
  state_.transcriptNavigation = {Uuid::random(), std::move(entryID)};
  changed();
}

void MacRemoteModel::finishTranscriptNavigation(const Uuid& id) {
  if (!state_.transcriptNavigation || state_.transcriptNavigation->id != id) return;
  state_.transcriptNavigation = std::nullopt;
  changed();
}

// ---- prompts ------------------------------------------------------------------------------------

bool MacRemoteModel::sendPrompt(std::string_view text) {
  if (!std::exchange(hasPreparedNotifications_, true) && callbacks_.prepareNotifications) {
    callbacks_.prepareNotifications();
  }
  const auto trimmed = text::trimmed(text);
  const auto& drafts = state_.draftAttachments;
  if (trimmed.empty() || !state_.selectedWorkspaceID || !state_.selectedThreadID ||
      !std::ranges::all_of(drafts, [](auto& each) { return each.status == Status::ready; })) {
    return false;
  }
  std::vector<ChatAttachment> attachments;
  for (const auto& each : drafts) attachments.push_back({.path = each.text});
  auto envelope = ofSelection(Type::prompt);
  envelope.text = ChatAttachmentPrompt::compose(trimmed, attachments);
  if (!send(std::move(envelope))) return false;  // the attachments stay for the next try
  state_.draftAttachments.clear();
  changed();
  return true;
}

void MacRemoteModel::uploadAttachments(const std::vector<std::string>& paths) {
  if (!state_.selectedWorkspaceID || !state_.selectedThreadID) return;
  for (const auto& path : paths) {
    auto& drafts = state_.draftAttachments;
    if (std::ranges::count(drafts, path, &MacRemoteDraftAttachment::url) > 0) continue;
    drafts.push_back({.id = Uuid::random().text(), .url = path, .text = ""});
    upload(drafts.back());
  }
  changed();
}

void MacRemoteModel::upload(const MacRemoteDraftAttachment& draft) {
  auto first = ofSelection(Type::attachmentChunk);
  first.mediaID = draft.id;
  first.mediaKind = "attachment";
  first.fileName = files::lastComponent(draft.url);
  auto sendAll = weakly(
      this, [first](MacRemoteModel& model, std::expected<UploadContent, std::string> content) {
        if (!content) return model.setStatus(first.mediaID, Status::failed, content.error());
        if (!model.attachment(first.mediaID)) return;  // removed
        for (std::size_t i = 0; i < content->chunks.size(); ++i) {
          auto chunk = first;
          chunk.id = Uuid::random().text();
          chunk.mimeType = content->mimeType;
          chunk.chunkIndex = static_cast<std::int64_t>(i);
          chunk.chunkCount = static_cast<std::int64_t>(content->chunks.size());
          chunk.data = std::move(content->chunks[i]);
          model.send(std::move(chunk));
        }
      });
  dependencies_.pool.post(
      [&main = dependencies_.main, path = draft.url, sendAll = std::move(sendAll)]() mutable {
        main.post([content = readUpload(path), sendAll = std::move(sendAll)]() mutable {
          sendAll(std::move(content));
        });
      });
}

void MacRemoteModel::removeAttachment(const std::string& id) {
  if (std::erase_if(state_.draftAttachments, [&](auto& each) { return each.id == id; })) changed();
}

MacRemoteDraftAttachment* MacRemoteModel::attachment(const std::optional<std::string>& id) {
  auto& drafts = state_.draftAttachments;
  const auto found =
      id ? std::ranges::find(drafts, *id, &MacRemoteDraftAttachment::id) : drafts.end();
  return found == drafts.end() ? nullptr : &*found;
}

void MacRemoteModel::setStatus(const std::optional<std::string>& id, Status status,
                               std::string text) {
  auto* const draft = attachment(id);
  if (!draft) return;
  draft->status = status;
  draft->text = std::move(text);
  changed();
}

std::string MacRemoteModel::composerDraft(const std::string& threadID,
                                          const std::string& workspaceID) const {
  return drafts_.text(draftKey(hostID(), workspaceID, threadID));
}

void MacRemoteModel::saveComposerDraft(std::string_view text, const std::string& threadID,
                                       const std::string& workspaceID) {
  drafts_.set(draftKey(hostID(), workspaceID, threadID), text);
}

// ---- commands -----------------------------------------------------------------------------------

RemoteEnvelope MacRemoteModel::ofSelection(Type type) const {
  return of(type, state_.selectedWorkspaceID, state_.selectedThreadID);
}

void MacRemoteModel::cancel() {
  send(ofSelection(Type::cancel));
}

void MacRemoteModel::branchThread(const std::string& entryID) {
  if (!state_.selectedWorkspaceID || !state_.selectedThreadID) return;
  auto envelope = ofSelection(Type::branchThread);
  envelope.entryID = entryID;
  send(std::move(envelope));
}

void MacRemoteModel::branchAndSend(const std::string& entryID, std::string_view prompt,
                                   std::optional<AgentProvider> provider) {
  const auto trimmed = text::trimmed(prompt);
  if (trimmed.empty() || !state_.selectedWorkspaceID || !state_.selectedThreadID) return;
  auto envelope = ofSelection(Type::branchAndSend);
  envelope.entryID = entryID;
  envelope.text = trimmed;
  if (provider) envelope.providerID = rawText(*provider);
  send(std::move(envelope));
}

void MacRemoteModel::renameThread(const std::string& id, const std::string& workspaceID,
                                  std::string_view title) {
  const auto trimmed = text::trimmed(title);
  if (trimmed.empty()) return;
  auto envelope = of(Type::renameThread, workspaceID, id);
  envelope.text = trimmed;
  send(std::move(envelope));
}

void MacRemoteModel::setWorkspaceInstructions(std::string_view text,
                                              const std::string& workspaceID) {
  auto envelope = of(Type::setWorkspaceInstructions, workspaceID, std::nullopt);
  envelope.text = text::trimmed(text);
  send(std::move(envelope));
}

void MacRemoteModel::setThreadArchived(bool isArchived, const std::string& threadID,
                                       const std::string& workspaceID) {
  if (isArchived && state_.selectedThreadID == threadID) {
    state_.selectedThreadID = std::nullopt;
    state_.draftAttachments.clear();
    changed();
  }
  auto envelope = of(Type::setThreadArchived, workspaceID, threadID);
  envelope.isArchived = isArchived;
  send(std::move(envelope));
}

void MacRemoteModel::setWorkflowMode(TaskWorkflowMode mode) {
  auto envelope = RemoteEnvelope::make(Type::setWorkflowMode);
  envelope.workflowMode = rawText(mode);
  send(std::move(envelope));
}

void MacRemoteModel::setTaskWorkspaceMode(TaskWorkspaceMode mode) {
  if (mode != TaskWorkspaceMode::isolated) {
    return showError(
        "An isolated host task cannot be moved back into the shared workspace automatically. Start "
        "a new shared task or merge its reviewed changes.");
  }
  auto envelope = RemoteEnvelope::make(Type::setTaskWorkspaceMode);
  envelope.workspaceMode = rawText(mode);
  send(std::move(envelope));
}

void MacRemoteModel::createCheckpoint() {
  auto envelope = RemoteEnvelope::make(Type::createCheckpoint);
  envelope.text = "Remote checkpoint";
  send(std::move(envelope));
}

void MacRemoteModel::handoff(AgentProvider to, ProviderHandoffScope scope) {
  auto envelope = RemoteEnvelope::make(Type::providerHandoff);
  envelope.providerMode = rawText(to);
  envelope.handoffScope =
      scope == ProviderHandoffScope::continueTask ? "continue_task" : "next_message";
  send(std::move(envelope));
}

void MacRemoteModel::setPermissionMode(GrokPermissionMode mode) {
  if (mode == GrokPermissionMode::fullAccess) {
    return showError("Full Access must be confirmed on the host Mac.");
  }
  auto envelope = RemoteEnvelope::make(Type::setPermissionMode);
  envelope.permissionMode = rawText(mode);
  send(std::move(envelope));
}

void MacRemoteModel::removeQueuedPrompt(const std::string& id) {
  auto envelope = ofSelection(Type::queueRemove);
  envelope.queuePromptID = id;
  send(std::move(envelope));
}

void MacRemoteModel::runNextQueuedPrompt() {
  send(ofSelection(Type::queueRunNext));
}

void MacRemoteModel::clearQueuedPrompts() {
  send(ofSelection(Type::queueClear));
}

}  // namespace vantrell
