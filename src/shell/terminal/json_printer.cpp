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

template <typename Values>
void array(JsonWriter& writer, std::string_view key, const Values& values, const auto& members) {
  writer.key(key);
  writer.beginArray();
  for (const auto& each : values) {
    writer.beginObject();
    members(each);
    writer.endObject();
  }
  writer.endArray();
}

}  // namespace

std::string eventLine(std::string_view name, std::string_view threadID,
                      const std::function<void(JsonWriter&)>& members) {
  std::string line;
  JsonWriter writer(line);
  writer.beginObject();
  member(writer, "event", name);
  if (!threadID.empty()) member(writer, "threadID", threadID);
  members(writer);
  writer.endObject();
  line += '\n';
  return line;
}

std::string permissionEvent(const PermissionRequest& request, std::string_view threadID) {
  return eventLine("permission", threadID, [&](JsonWriter& writer) {
    writer.key("request");
    writer.beginObject();
    member(writer, "id", request.id);
    member(writer, "title", request.title);
    member(writer, "detail", request.detail);
    array(writer, "options", request.options, [&](const PermissionOption& option) {
      member(writer, "id", option.id);
      member(writer, "name", option.name);
      member(writer, "kind", option.kind);
    });
    writer.endObject();
  });
}

void JsonPrinter::event(std::string_view name, const std::function<void(JsonWriter&)>& members) {
  write_(eventLine(name, threadID_, members));
}

void JsonPrinter::introduced(const RunIntroduction& introduction) {
  event("task", [&](JsonWriter& writer) {
    member(writer, "workspaceID", introduction.conversation.workspaceID.text());
    if (threadID_.empty()) {
      member(writer, "threadID", introduction.conversation.threadID.text());
    } else {
      member(writer, "path", introduction.folder);
    }
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
    array(writer, "entries", plan, [&](const PlanEntry& entry) {
      member(writer, "id", entry.id);
      member(writer, "content", entry.content);
      member(writer, "status", entry.status);
      member(writer, "priority", entry.priority);
    });
  });
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
