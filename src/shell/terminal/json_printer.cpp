#include "shell/terminal/json_printer.h"

#include "platform/values/json.h"
#include "records/stores/conversation_json.h"

namespace vantrell::shell {

namespace {

template <typename Value>
void member(JsonWriter& writer, std::string_view key, const Value& value) {
  writer.key(key);
  writer.value(value);
}

void writeRequest(JsonWriter& writer, const PermissionRequest& request) {
  writer.key("request");
  writer.beginObject();
  member(writer, "id", request.id);
  member(writer, "title", request.title);
  member(writer, "detail", request.detail);
  writer.key("options");
  writer.beginArray();
  for (const auto& option : request.options) {
    writer.beginObject();
    member(writer, "id", option.id);
    member(writer, "name", option.name);
    member(writer, "kind", option.kind);
    writer.endObject();
  }
  writer.endArray();
  writer.endObject();
}

}  // namespace

std::string eventLine(std::string_view name, const std::function<void(JsonWriter&)>& members) {
  std::string line;
  JsonWriter writer(line);
  writer.beginObject();
  member(writer, "event", name);
  members(writer);
  writer.endObject();
  line += '\n';
  return line;
}

void JsonPrinter::event(std::string_view name, const std::function<void(JsonWriter&)>& members) {
  write_(eventLine(name, [&](JsonWriter& writer) {
    if (!threadID_.empty()) member(writer, "threadID", threadID_);
    members(writer);
  }));
}

void JsonPrinter::introduced(const RunIntroduction& introduction) {
  event("task", [&](JsonWriter& writer) {
    member(writer, "workspaceID", introduction.conversation.workspaceID.text());
    if (threadID_.empty()) member(writer, "threadID", introduction.conversation.threadID.text());
    if (!threadID_.empty()) member(writer, "path", introduction.folder);
  });
}

void JsonPrinter::entryAdded(const ChatEntry& entry) {
  event("entry", [&](JsonWriter& writer) {
    writer.key("entry");
    writeJson(writer, entry, conversationJson);
  });
}

void JsonPrinter::textAdded(const ChatEntry& entry, std::string_view text) {
  event("chunk", [&](JsonWriter& writer) {
    member(writer, "id", entry.id);
    member(writer, "text", text);
  });
}

void JsonPrinter::transcriptReplaced(const Transcript& entries) {
  event("transcript", [&](JsonWriter& writer) {
    member(writer, "count", static_cast<std::int64_t>(entries.size()));
  });
  for (const auto& entry : entries) entryAdded(entry);
}

void JsonPrinter::planReplaced(const std::vector<PlanEntry>& plan) {
  event("plan", [&](JsonWriter& writer) {
    writer.key("entries");
    writer.beginArray();
    for (const auto& entry : plan) {
      writer.beginObject();
      member(writer, "id", entry.id);
      member(writer, "content", entry.content);
      member(writer, "status", entry.status);
      member(writer, "priority", entry.priority);
      writer.endObject();
    }
    writer.endArray();
  });
}

void JsonPrinter::permissionAsked(const PermissionRequest& request) {
  event("permission", [&](JsonWriter& writer) { writeRequest(writer, request); });
}

std::string permissionEvent(const PermissionRequest& request) {
  return eventLine("permission", [&](JsonWriter& writer) { writeRequest(writer, request); });
}

void JsonPrinter::promptQueued(std::size_t waiting) {
  event("queued",
        [&](JsonWriter& writer) { member(writer, "waiting", static_cast<std::int64_t>(waiting)); });
}

void JsonPrinter::runChanged(const RunRecord& run) {
  event("run", [&](JsonWriter& writer) {
    writer.key("run");
    writeJson(writer, run, conversationJson);
  });
}

}  // namespace vantrell::shell
