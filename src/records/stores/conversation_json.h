// The conversation records as JSON: keys named as the fields, in the order of the fields. Unknown
// keys are ignored; an unknown value of an enumeration fails the document.
#pragma once

#include <expected>
#include <string>
#include <vector>

#include "platform/values/json.h"
#include "records/stores/json_policy.h"
#include "records/values/chat_thread.h"

namespace vantrell {

void writeJson(JsonWriter& writer, const ChatEntry& entry, const JsonPolicy& policy);
void writeJson(JsonWriter& writer, const RunRecord& run, const JsonPolicy& policy);
void writeJson(JsonWriter& writer, const ChatThread& thread, const JsonPolicy& policy);
void writeJson(JsonWriter& writer, const Workspace& workspace, const JsonPolicy& policy);

/// The whole tree, compact.
std::string encodeWorkspaces(const std::vector<Workspace>& workspaces, const JsonPolicy& policy);
std::expected<std::vector<Workspace>, DecodeError> decodeWorkspaces(std::string_view text,
                                                                    const JsonPolicy& policy);
/// One object, for a script.
std::string encodeCheckpoint(const WorkspaceCheckpoint& checkpoint);
std::expected<ChatThread, DecodeError> decodeThread(const Json& json, const JsonPolicy& policy);

// The pieces that the store keeps on rows of their own, as `conversationJson` has them. A head is
// its record without the lists that grow: a workspace without threads, a thread without entries and
// runs.

std::string encodeHead(const ChatThread& thread);
std::string encodeHead(const Workspace& workspace);
std::string encodeRow(const RunRecord& run);
std::string encodeRow(const ChatEntry& entry);
std::expected<ChatThread, DecodeError> decodeThreadHead(std::string_view text);
std::expected<Workspace, DecodeError> decodeWorkspaceHead(std::string_view text);
std::expected<RunRecord, DecodeError> decodeRun(std::string_view text);
std::expected<ChatEntry, DecodeError> decodeEntry(std::string_view text);

}  // namespace vantrell
