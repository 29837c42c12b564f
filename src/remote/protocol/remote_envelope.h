// The one message of remote control, in both directions and on every road. A flat record of
// optional fields, of which the type says which matter; a peer reads only what it knows, so that
// old and new ones understand each other. Plain values and pure functions, any thread.
#pragma once

#include <cstdint>
#include <expected>
#include <optional>
#include <string>
#include <string_view>

#include "records/stores/json_policy.h"
#include "records/values/raw_text.h"
#include "remote/protocol/remote_snapshot.h"

namespace vantrell {

/// What a message is, with the fields that it uses; those in brackets may be absent. All but hello,
/// refresh and ack are answered with an ack when a host has handled them. Ids are UUIDs as text.
enum class RemoteMessageType {
  // From a client to a host.
  hello,                     // the client has just become ready; answered with a snapshot
  refresh,                   // answered with a snapshot
  ack,                       // acknowledgesID; from a host: the command of that id has been handled
  selectThread,              // workspaceID, threadID
  newThread,                 // [workspaceID]
  prompt,                    // workspaceID, threadID, text (which names the attachments too)
  branchThread,              // workspaceID, threadID, entryID
  branchAndSend,             // workspaceID, threadID, entryID, text, [providerID]
  renameThread,              // workspaceID, threadID, text
  moveThread,                // workspaceID, threadID, destinationWorkspaceID
  setWorkspacePinned,        // workspaceID, isPinned
  setWorkspaceInstructions,  // workspaceID, text
  archiveWorkspaceThreads,   // workspaceID
  setThreadPinned,           // workspaceID, threadID, isPinned
  setThreadArchived,         // workspaceID, threadID, isArchived
  deleteThread,              // workspaceID, threadID
  queueRemove,               // workspaceID, threadID, queuePromptID
  queueRunNext,              // workspaceID, threadID
  queueClear,                // workspaceID, threadID
  cancel,                    // [threadID], [mediaKind]: the turn, or the media generator's job
  permissionResponse,        // requestID, optionID
  setPermissionMode,         // permissionMode
  setProviderMode,           // providerMode
  setSessionModel,           // modelID
  setSessionEffort,          // effort
  setWorkflowMode,           // workflowMode
  setTaskWorkspaceMode,      // workspaceMode
  createCheckpoint,          // [text]
  providerHandoff,           // providerMode (the target, not in providerID), handoffScope
  usageRefresh,              // (no fields)
  usageReset,                // (no fields)
  imagineGenerate,           // text, mediaKind
  mediaRequest,              // mediaID
  attachmentChunk,     // workspaceID, threadID, mediaID (of the upload), mediaKind "attachment",
                       // [mimeType], fileName, chunkIndex, chunkCount, data
  hostUpdateRequest,   // (no fields)
  hostUpdateDecision,  // optionID
  // From a host to every client.
  snapshot,         // snapshot
  error,            // text: why a command was refused, for the user
  attachmentReady,  // workspaceID, threadID, mediaID, fileName, text: path below the project
  attachmentError,  // workspaceID, threadID, mediaID, fileName, text: the reason
  mediaChunk,       // mediaID, mediaKind, mimeType, fileName, chunkIndex, chunkCount, data
  taskEvent         // workspaceID, threadID, eventKind, title, text
};
constexpr auto rawTexts(RemoteMessageType) {
  return std::to_array<std::string_view>({"hello",
                                          "refresh",
                                          "ack",
                                          "select_thread",
                                          "new_thread",
                                          "prompt",
                                          "branch_thread",
                                          "branch_and_send",
                                          "rename_thread",
                                          "move_thread",
                                          "set_workspace_pinned",
                                          "set_workspace_instructions",
                                          "archive_workspace_threads",
                                          "set_thread_pinned",
                                          "set_thread_archived",
                                          "delete_thread",
                                          "queue_remove",
                                          "queue_run_next",
                                          "queue_clear",
                                          "cancel",
                                          "permission_response",
                                          "set_permission_mode",
                                          "set_provider_mode",
                                          "set_session_model",
                                          "set_session_effort",
                                          "set_workflow_mode",
                                          "set_task_workspace_mode",
                                          "create_checkpoint",
                                          "provider_handoff",
                                          "usage_refresh",
                                          "usage_reset",
                                          "imagine_generate",
                                          "media_request",
                                          "attachment_chunk",
                                          "host_update_request",
                                          "host_update_decision",
                                          "snapshot",
                                          "error",
                                          "attachment_ready",
                                          "attachment_error",
                                          "media_chunk",
                                          "task_event"});
}

struct RemoteEnvelope {
  static constexpr std::int64_t currentVersion = 1;
  /// Of an id, in bytes. Hosts remember ids, so a longer one makes a message unreadable.
  static constexpr std::size_t longestID = 256;

  std::int64_t version = currentVersion;
  std::string id;    // by which a message that comes twice is known
  std::string type;  // raw text of a RemoteMessageType, or of a later version's
  std::optional<std::string> workspaceID;
  std::optional<std::string> threadID;
  std::optional<std::string> destinationWorkspaceID;
  std::optional<std::int64_t> requestID;
  std::optional<std::string> text;
  std::optional<std::string> entryID;
  std::optional<std::string> providerID;
  std::optional<bool> isPinned;
  std::optional<bool> isArchived;
  std::optional<std::string> optionID;
  std::optional<std::string> permissionMode;
  std::optional<std::string> providerMode;
  std::optional<std::string> modelID;
  std::optional<std::string> effort;
  std::optional<std::string> workflowMode;
  std::optional<std::string> workspaceMode;
  std::optional<std::string> handoffScope;
  std::optional<std::string> mediaID;
  std::optional<std::string> queuePromptID;
  std::optional<std::string> mediaKind;
  std::optional<std::string> mimeType;
  std::optional<std::string> fileName;
  std::optional<std::int64_t> chunkIndex;
  std::optional<std::int64_t> chunkCount;
  std::optional<std::string> data;  // Base64 of one chunk
  std::optional<std::string> eventKind;
  std::optional<std::string> title;
  std::optional<std::string> acknowledgesID;
  std::optional<RemoteSnapshot> snapshot;

  /// A message with a fresh id and no other field.
  static RemoteEnvelope make(RemoteMessageType type);
  /// nullopt for a type that this version does not know.
  std::optional<RemoteMessageType> knownType() const;

  bool operator==(const RemoteEnvelope&) const = default;
};

/// JSON, with the fields' names as keys; absent fields are left out.
std::string encode(const RemoteEnvelope& envelope);
/// The JSON of a snapshot alone.
std::string encodeSnapshot(const RemoteSnapshot& snapshot);
/// JSON of a snapshot message whose snapshot is JSON already, so that a host need not encode
/// what has not changed.
std::string encodeSnapshotEnvelope(std::string_view id, std::string_view snapshotJson);
/// Unknown keys are skipped; a missing required key, in the snapshot too, is an error.
std::expected<RemoteEnvelope, DecodeError> decodeEnvelope(std::string_view text);

}  // namespace vantrell
