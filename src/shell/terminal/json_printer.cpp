#include "shell/terminal/json_printer.h"

#include "records/stores/conversation_json.h"

namespace vantrell::shell {

std::string eventLine(std::string_view name, std::string_view threadID, const JsonObject& members,
                      const std::function<void(JsonWriter&)>& record) {
  std::string line;
  JsonWriter writer(line);
  writer.beginObject();
  writer.key("event");
  writer.value(name);
  if (!threadID.empty()) {
    writer.key("threadID");
    writer.value(threadID);
  }
  for (const auto& [key, value] : members) {
    writer.key(key);
    writer.value(value);
  }
  if (record) {
    writer.key(name);
    record(writer);
  }
  writer.endObject();
  return line + '\n';
}

std::string permissionEvent(const PermissionRequest& request, std::string_view threadID) {
  Json::Array options;
  for (const auto& option : request.options) {
    options.push_back(JsonObject{{"id", option.id}, {"name", option.name}, {"kind", option.kind}});
  }
  return eventLine("permission", threadID,
                   {{"request", JsonObject{{"id", request.id},
                                           {"title", request.title},
                                           {"detail", request.detail},
                                           {"options", std::move(options)}}}});
}

void JsonPrinter::introduced(const RunIntroduction& introduction) {
  JsonObject members{{"workspaceID", introduction.conversation.workspaceID.text()}};
  if (threadID_.empty()) {
    members.set("threadID", introduction.conversation.threadID.text());
  } else {
    members.set("path", introduction.folder);
  }
  event("task", members);
}

void JsonPrinter::entryAdded(const ChatEntry& entry) {
  write_(eventLine("entry", threadID_, {},
                   [&](JsonWriter& writer) { writeJson(writer, entry, conversationJson); }));
}

void JsonPrinter::textAdded(const ChatEntry& entry, std::string_view text) {
  event("chunk", {{"id", entry.id}, {"text", text}});
}

void JsonPrinter::transcriptReplaced(const Transcript& entries) {
  event("transcript", {{"count", static_cast<std::int64_t>(entries.size())}});
  for (const auto& entry : entries) entryAdded(entry);
}

void JsonPrinter::planReplaced(const std::vector<PlanEntry>& plan) {
  Json::Array entries;
  for (const auto& entry : plan) {
    entries.push_back(JsonObject{{"id", entry.id},
                                 {"content", entry.content},
                                 {"status", entry.status},
                                 {"priority", entry.priority}});
  }
  event("plan", {{"entries", std::move(entries)}});
}

void JsonPrinter::promptQueued(std::size_t waiting) {
  event("queued", {{"waiting", static_cast<std::int64_t>(waiting)}});
}

void JsonPrinter::runChanged(const RunRecord& run) {
  write_(eventLine("run", threadID_, {},
                   [&](JsonWriter& writer) { writeJson(writer, run, conversationJson); }));
}

}  // namespace vantrell::shell
