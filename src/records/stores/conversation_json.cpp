#include "records/stores/conversation_json.h"

#include "records/stores/json_fields.h"

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

// In three parts, since a store keeps the entries and the runs apart from all the rest.

static constexpr auto fieldsBeforeEntries() {
  using R = ChatThread;
  return fields(field("id", &R::id), field("title", &R::title), field("sessionId", &R::sessionId),
                field("providerSessionIDs", &R::providerSessionIDs),
                field("providerModelIDs", &R::providerModelIDs),
                field("providerEfforts", &R::providerEfforts),
                field("lastProvider", &R::lastProvider),
                field("importedSession", &R::importedSession), field("draftText", &R::draftText),
                field("draftAttachments", &R::draftAttachments, orDefault),
                field("workspaceMode", &R::workspaceMode, orDefault),
                field("isolatedWorkspacePath", &R::isolatedWorkspacePath),
                field("checkpoints", &R::checkpoints, orDefault),
                field("preferredProvider", &R::preferredProvider),
                field("nextMessageProvider", &R::nextMessageProvider),
                field("comparisonGroupID", &R::comparisonGroupID));
}
static constexpr auto fieldOfQueue() {
  return fields(field("queuedPrompts", &ChatThread::queuedPrompts, orDefault));
}
static constexpr auto fieldsAfterRuns() {
  using R = ChatThread;
  return fields(field("createdAt", &R::createdAt), field("updatedAt", &R::updatedAt),
                field("isPinned", &R::isPinned, orDefault),
                field("isArchived", &R::isArchived, orDefault));
}

static constexpr auto fieldsOf(const ChatThread*) {
  using R = ChatThread;
  return std::tuple_cat(fieldsBeforeEntries(), fields(field("entries", &R::entries)),
                        fieldOfQueue(), fields(field("runs", &R::runs, orDefault)),
                        fieldsAfterRuns());
}
static constexpr auto headFields(const ChatThread*) {
  return std::tuple_cat(fieldsBeforeEntries(), fieldOfQueue(), fieldsAfterRuns());
}

static constexpr auto fieldsOf(const Workspace*) {
  using R = Workspace;
  return fields(field("id", &R::id), field("name", &R::name), field("path", &R::path),
                field("threads", &R::threads), field("isPinned", &R::isPinned, orDefault));
}
static constexpr auto headFields(const Workspace*) {
  using R = Workspace;
  return fields(field("id", &R::id), field("name", &R::name), field("path", &R::path),
                field("isPinned", &R::isPinned, orDefault));
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

// ---- the pieces that a store keeps on rows of their own -----------------------------------------

namespace {

template <typename Record>
std::string encodeHeadOf(const Record& record) {
  std::string out;
  JsonWriter writer(out);
  writeFields(writer, record, headFields(&record), conversationJson);
  return out;
}

template <typename Record>
std::string encodeWhole(const Record& record) {
  std::string out;
  JsonWriter writer(out);
  writeJson(writer, record, conversationJson);
  return out;
}

template <typename Record, typename Fields>
std::expected<Record, DecodeError> decodeRow(std::string_view text, const Fields& described) {
  const auto json = json::parse(text);
  if (!json) return std::unexpected(DecodeError{"", json.error().message});
  Record record{};
  JsonReading reading{conversationJson};
  if (!readFields(*json, record, described, reading)) {
    return std::unexpected(std::move(reading.error));
  }
  return record;
}

}  // namespace

std::string encodeHead(const ChatThread& thread) {
  return encodeHeadOf(thread);
}
std::string encodeHead(const Workspace& workspace) {
  return encodeHeadOf(workspace);
}
std::string encodeRow(const RunRecord& run) {
  return encodeWhole(run);
}
std::string encodeRow(const ChatEntry& entry) {
  return encodeWhole(entry);
}
std::string encodeCheckpoint(const WorkspaceCheckpoint& checkpoint) {
  return encodeWhole(checkpoint);
}

std::expected<ChatThread, DecodeError> decodeThreadHead(std::string_view text) {
  return decodeRow<ChatThread>(text, headFields(static_cast<const ChatThread*>(nullptr)));
}
std::expected<Workspace, DecodeError> decodeWorkspaceHead(std::string_view text) {
  return decodeRow<Workspace>(text, headFields(static_cast<const Workspace*>(nullptr)));
}
std::expected<RunRecord, DecodeError> decodeRun(std::string_view text) {
  return decodeRow<RunRecord>(text, fieldsOf(static_cast<const RunRecord*>(nullptr)));
}
std::expected<ChatEntry, DecodeError> decodeEntry(std::string_view text) {
  return decodeRow<ChatEntry>(text, fieldsOf(static_cast<const ChatEntry*>(nullptr)));
}

}  // namespace vantrell
