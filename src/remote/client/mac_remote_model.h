// What a window or a terminal shows of one remote host, and the commands that it gives to it. The
// host's snapshots are the only state of tasks: a change is visible when the next one arrives. What
// belongs to the client is the selection, drafts, attachments on their way, and the pairing.
//
// Main queue. Held by a shared_ptr. A command is sent once, while the host is connected; whether it
// succeeded shows the next snapshot, or `errorMessage`, the one place for failures.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/values/uuid.h"
#include "records/values/conversation_records.h"
#include "records/values/routing.h"
#include "records/values/task_modes.h"
#include "remote/client/mac_remote_client.h"
#include "remote/client/pairing_code_resolver.h"
#include "remote/client/remote_composer_drafts.h"

namespace vantrell {

class MacRemotePairingStore;

/// A file that is to go with the next prompt.
struct MacRemoteDraftAttachment {
  enum class Status { uploading, ready, failed };
  std::string id;   // a UUID, by which the host knows the upload
  std::string url;  // path of the file on this computer
  Status status = Status::uploading;
  std::string text;  // when ready the path below the project's folder, when failed the reason

  bool operator==(const MacRemoteDraftAttachment&) const = default;
};

/// A jump to an entry of the selected transcript that a view is to make.
struct TranscriptNavigationRequest {
  Uuid id;
  std::string entryID;
};

/// To be shown to the user as a notification of the desktop.
struct MacTaskNotification {
  std::string kind, title, message;
  std::string source = "remote";
  std::optional<std::string> workspaceID, threadID;
};

class MacRemoteModel : public std::enable_shared_from_this<MacRemoteModel> {
 public:
  struct Dependencies {
    MainQueue& main;
    BackgroundPool& pool;          // ends before the main queue
    MacRemotePairingStore& store;  // outlives the model
    std::string supportFolder;
    /// Looks pairing codes up. Absent: there are only links.
    std::optional<Url> relayURL;
    std::string trustedCertificates;  // as for a WebSocket
  };
  struct State {
    MacRemoteConnectionState connectionState;
    std::string pairingInput;  // as typed; the full link once it has been read
    std::string pairingName = "Host Mac";
    bool isStoredPairingRead = false;                // if there was one, it is the pairing input
    std::shared_ptr<const RemoteSnapshot> snapshot;  // the last one; null before
    std::optional<std::string> selectedWorkspaceID;
    std::optional<std::string> selectedThreadID;
    std::optional<std::string> errorMessage;  // until it is replaced
    std::optional<TranscriptNavigationRequest> transcriptNavigation;
    std::vector<MacRemoteDraftAttachment> draftAttachments;
  };
  struct Callbacks {
    std::function<void()> onChange;  // of the state
    std::function<void()> prepareNotifications;
    std::function<void(const MacTaskNotification&)> notify;
    /// Every message, after the model has handled it: for those that it ignores, such as
    /// acknowledgements and pieces of media.
    std::function<void(const RemoteEnvelope&)> onMessage;
  };

  /// Reads the stored pairing; with `autoConnect` connects to its host.
  static std::shared_ptr<MacRemoteModel> make(Dependencies dependencies, Callbacks callbacks,
                                              bool autoConnect);

  const State& state() const { return state_; }
  // Pointers are valid while the snapshot is; null where there is none.
  const RemoteWorkspace* selectedWorkspace() const;
  const RemoteThread* selectedThread() const;
  const RemoteRunActivity* selectedActivity() const;
  /// Of the selected thread, in the form of local transcripts. What cannot be shown is left out.
  std::vector<ChatEntry> entries() const;
  bool isHostWorking() const;

  void setPairingInput(std::string text);
  /// To the host of the pairing input: a link, or a code that the relay knows.
  void connect();
  void reconnect();
  /// With `forget`, the pairing and the drafts for this host are removed.
  void disconnect(bool forget);

  void selectThread(const std::string& id, const std::string& workspaceID);
  void newThread(std::optional<std::string> workspaceID = std::nullopt);
  /// In the order of the last change; wraps at both ends. Archived tasks are passed over.
  void selectAdjacentRecentTask(int offset);
  void navigateTranscript(std::string entryID);
  void finishTranscriptNavigation(const Uuid& id);

  /// Sends nothing unless all attachments are uploaded. True when it was sent.
  bool sendPrompt(std::string_view text);
  void uploadAttachments(const std::vector<std::string>& paths);
  void removeAttachment(const std::string& id);
  std::string composerDraft(const std::string& threadID, const std::string& workspaceID) const;
  void saveComposerDraft(std::string_view text, const std::string& threadID,
                         const std::string& workspaceID);

  /// False, with a message, unless the host is connected.
  bool send(RemoteEnvelope envelope);

  // Of the selected task, where no other is named.
  void cancel();
  void branchThread(const std::string& entryID);
  void branchAndSend(const std::string& entryID, std::string_view prompt,
                     std::optional<AgentProvider> provider);
  void renameThread(const std::string& id, const std::string& workspaceID, std::string_view title);
  void setWorkspaceInstructions(std::string_view text, const std::string& workspaceID);
  void setThreadArchived(bool isArchived, const std::string& threadID,
                         const std::string& workspaceID);
  void setWorkflowMode(TaskWorkflowMode mode);
  void setTaskWorkspaceMode(TaskWorkspaceMode mode);
  void createCheckpoint();
  void handoff(AgentProvider to, ProviderHandoffScope scope);
  void setPermissionMode(GrokPermissionMode mode);
  void removeQueuedPrompt(const std::string& id);
  void runNextQueuedPrompt();
  void clearQueuedPrompts();

  static constexpr std::size_t longestAttachment = 20'971'520;  // bytes
  static constexpr std::size_t attachmentChunk = 196'608;       // bytes before Base64

 private:
  MacRemoteModel(Dependencies dependencies, Callbacks callbacks);
  void begin(bool autoConnect);
  void connectPairingLink(const std::string& text);
  void failPairing(std::string_view message);
  void handle(RemoteEnvelope envelope);
  void store(RemoteSnapshot snapshot);
  void forgetSnapshot();
  void reconcileSelection();
  void pruneComposerDrafts();
  void upload(const MacRemoteDraftAttachment& attachment);
  MacRemoteDraftAttachment* attachment(const std::optional<std::string>& id);
  void setStatus(const std::optional<std::string>& id, MacRemoteDraftAttachment::Status status,
                 std::string text);
  void showError(std::string text);
  void changed();
  std::string hostID() const;
  /// With the selected workspace and thread, as far as there are any.
  RemoteEnvelope ofSelection(RemoteMessageType type) const;

  const Dependencies dependencies_;
  const Callbacks callbacks_;
  const std::shared_ptr<MacRemoteClient> client_;
  RemotePairingCodeResolver resolver_;
  MacRemoteComposerDraftStore drafts_;
  State state_;
  bool hasPreparedNotifications_ = false;
};

}  // namespace vantrell
