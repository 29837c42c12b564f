#include "remote/protocol/remote_envelope.h"

#include "remote/protocol/remote_snapshot_json.h"

namespace vantrell {

static constexpr auto fieldsOf(const RemoteEnvelope*) {
  using R = RemoteEnvelope;
  return fields(field("version", &R::version), field("id", &R::id), field("type", &R::type),
                field("workspaceID", &R::workspaceID), field("threadID", &R::threadID),
                field("destinationWorkspaceID", &R::destinationWorkspaceID),
                field("requestID", &R::requestID), field("text", &R::text),
                field("entryID", &R::entryID), field("providerID", &R::providerID),
                field("isPinned", &R::isPinned), field("isArchived", &R::isArchived),
                field("optionID", &R::optionID), field("permissionMode", &R::permissionMode),
                field("providerMode", &R::providerMode), field("modelID", &R::modelID),
                field("effort", &R::effort), field("workflowMode", &R::workflowMode),
                field("workspaceMode", &R::workspaceMode), field("handoffScope", &R::handoffScope),
                field("mediaID", &R::mediaID), field("queuePromptID", &R::queuePromptID),
                field("mediaKind", &R::mediaKind), field("mimeType", &R::mimeType),
                field("fileName", &R::fileName), field("chunkIndex", &R::chunkIndex),
                field("chunkCount", &R::chunkCount), field("data", &R::data),
                field("eventKind", &R::eventKind), field("title", &R::title),
                field("acknowledgesID", &R::acknowledgesID), field("snapshot", &R::snapshot));
}

RemoteEnvelope RemoteEnvelope::make(RemoteMessageType type) {
  RemoteEnvelope envelope;
  envelope.id = Uuid::random().text();
  envelope.type = rawText(type);
  return envelope;
}

std::optional<RemoteMessageType> RemoteEnvelope::knownType() const {
  return fromRawText<RemoteMessageType>(type);
}

template <typename Record>
static std::string jsonOf(const Record& record) {
  std::string out;
  JsonWriter writer(out);
  writeJson(writer, record, remoteJson);
  return out;
}

std::string encode(const RemoteEnvelope& envelope) {
  return jsonOf(envelope);
}

std::string encodeSnapshot(const RemoteSnapshot& snapshot) {
  return jsonOf(snapshot);
}

std::string encodeSnapshotEnvelope(std::string_view id, std::string_view snapshotJson) {
  auto envelope = RemoteEnvelope::make(RemoteMessageType::snapshot);
  envelope.id = id;
  std::string out = encode(envelope);
  out.pop_back();  // the object's end
  out.reserve(out.size() + snapshotJson.size() + 16);
  out += ",\"snapshot\":";
  out += snapshotJson;
  out += '}';
  return out;
}

std::expected<RemoteEnvelope, DecodeError> decodeEnvelope(std::string_view text) {
  const auto json = json::parse(text);
  if (!json) return std::unexpected(DecodeError{"", json.error().message});
  RemoteEnvelope envelope;
  JsonReading reading{remoteJson};
  if (!readJson(*json, envelope, reading)) return std::unexpected(std::move(reading.error));
  if (envelope.id.size() > RemoteEnvelope::longestID) {
    return std::unexpected(DecodeError{"id", "too long"});
  }
  return envelope;
}

}  // namespace vantrell
