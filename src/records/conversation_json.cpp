#include "records/conversation_json.h"

#include "records/json_fields.h"

namespace vantrell {

// Found by argument-dependent look-up, so they stand beside the records, not in a nameless
// namespace.

static constexpr auto fieldsOf(const ChatAttachment*) {
  using R = ChatAttachment;
  return fields(field("id", &R::id), field("displayName", &R::displayName), field("path", &R::path),
                field("kind", &R::kind), field("contentType", &R::contentType),
                field("byteCount", &R::byteCount));
}

static constexpr auto fieldsOf(const ChatEntry*) {
  using R = ChatEntry;
  return fields(field("id", &R::id), field("kind", &R::kind), field("text", &R::text),
                field("title", &R::title), field("status", &R::status),
                field("provider", &R::provider), field("attachments", &R::attachments, orDefault),
                field("createdAt", &R::createdAt));
}

static constexpr auto fieldsOf(const QueuedPrompt*) {
  using R = QueuedPrompt;
  return fields(field("id", &R::id), field("text", &R::text),
                field("attachments", &R::attachments, orDefault),
                field("createdAt", &R::createdAt));
}

static constexpr auto fieldsOf(const RunRecord*) {
  using R = RunRecord;
  return fields(field("id", &R::id), field("prompt", &R::prompt), field("provider", &R::provider),
                field("modelID", &R::modelID), field("effort", &R::effort),
                field("status", &R::status), field("statusMessage", &R::statusMessage),
                field("routingReason", &R::routingReason), field("startedAt", &R::startedAt),
                field("updatedAt", &R::updatedAt), field("lastActivityAt", &R::lastActivityAt),
                field("completedAt", &R::completedAt));
}

static constexpr auto fieldsOf(const WorkspaceCheckpoint*) {
  using R = WorkspaceCheckpoint;
  return fields(field("id", &R::id), field("label", &R::label), field("kind", &R::kind),
                field("createdAt", &R::createdAt), field("baseRevision", &R::baseRevision),
                field("archivePath", &R::archivePath),
                field("conversationEntryCount", &R::conversationEntryCount),
                field("sourceMessageID", &R::sourceMessageID),
                field("changedFileCount", &R::changedFileCount));
}

static constexpr auto fieldsOf(const ImportedSessionReference*) {
  using R = ImportedSessionReference;
  return fields(field("provider", &R::provider), field("sessionID", &R::sessionID),
                field("sourceLabel", &R::sourceLabel), field("activity", &R::activity),
                field("importedAt", &R::importedAt), field("lastSeenAt", &R::lastSeenAt));
}

static constexpr auto fieldsOf(const ChatThread*) {
  using R = ChatThread;
  return fields(
      field("id", &R::id), field("title", &R::title), field("sessionId", &R::sessionId),
      field("providerSessionIDs", &R::providerSessionIDs),
      field("providerModelIDs", &R::providerModelIDs),
      field("providerEfforts", &R::providerEfforts), field("lastProvider", &R::lastProvider),
      field("importedSession", &R::importedSession), field("draftText", &R::draftText),
      field("draftAttachments", &R::draftAttachments, orDefault),
      field("workspaceMode", &R::workspaceMode, orDefault),
      field("isolatedWorkspacePath", &R::isolatedWorkspacePath),
      field("checkpoints", &R::checkpoints, orDefault),
      field("preferredProvider", &R::preferredProvider),
      field("nextMessageProvider", &R::nextMessageProvider),
      field("comparisonGroupID", &R::comparisonGroupID), field("entries", &R::entries),
      field("queuedPrompts", &R::queuedPrompts, orDefault), field("runs", &R::runs, orDefault),
      field("createdAt", &R::createdAt), field("updatedAt", &R::updatedAt),
      field("isPinned", &R::isPinned, orDefault), field("isArchived", &R::isArchived, orDefault));
}

static constexpr auto fieldsOf(const Workspace*) {
  using R = Workspace;
  return fields(field("id", &R::id), field("name", &R::name), field("path", &R::path),
                field("threads", &R::threads), field("isPinned", &R::isPinned, orDefault));
}

static bool readJson(const Json& json, Transcript& transcript, JsonReading& reading) {
  std::vector<ChatEntry> entries;
  if (!readJson(json, entries, reading)) return false;
  transcript = Transcript(std::move(entries));
  return true;
}

// The templates do the work; these give it a name that other files can link to.
void writeJson(JsonWriter& writer, const ChatEntry& entry, const JsonPolicy& policy) {
  writeJson<ChatEntry>(writer, entry, policy);
}
void writeJson(JsonWriter& writer, const RunRecord& run, const JsonPolicy& policy) {
  writeJson<RunRecord>(writer, run, policy);
}
void writeJson(JsonWriter& writer, const ChatThread& thread, const JsonPolicy& policy) {
  writeJson<ChatThread>(writer, thread, policy);
}
void writeJson(JsonWriter& writer, const Workspace& workspace, const JsonPolicy& policy) {
  writeJson<Workspace>(writer, workspace, policy);
}

std::string encodeWorkspaces(const std::vector<Workspace>& workspaces, const JsonPolicy& policy) {
  std::string out;
  JsonWriter writer(out);
  writeJson(writer, workspaces, policy);
  return out;
}

namespace {
template <typename T>
std::expected<T, DecodeError> decode(const Json& json, const JsonPolicy& policy) {
  T value{};
  JsonReading reading{policy};
  if (!readJson(json, value, reading)) return std::unexpected(std::move(reading.error));
  return value;
}
}  // namespace

std::expected<std::vector<Workspace>, DecodeError> decodeWorkspaces(std::string_view text,
                                                                    const JsonPolicy& policy) {
  const auto json = json::parse(text);
  if (!json) return std::unexpected(DecodeError{"", json.error().message});
  return decode<std::vector<Workspace>>(*json, policy);
}

std::expected<ChatThread, DecodeError> decodeThread(const Json& json, const JsonPolicy& policy) {
  return decode<ChatThread>(json, policy);
}

}  // namespace vantrell
