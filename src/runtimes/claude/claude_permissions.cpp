#include "runtimes/claude/claude_permissions.h"

#include "runtimes/claude/claude_messages.h"

namespace vantrell {

namespace {

constexpr std::string_view denyOption = "claude-deny";
constexpr std::string_view allowOnceOption = "claude-allow-once";

std::string titleOf(const JsonObject& request) {
  for (const std::string_view key : {"display_name", "title", "tool_name"}) {
    if (const std::string* name = json::text(request, key)) return *name;
  }
  return "Use a tool";
}

std::string detailOf(const JsonObject& request, const JsonObject& input) {
  if (!input.empty()) return json::writePrettySorted(input);
  // A tool without input (the end of plan mode, say) would show as a pair of braces; nobody should
  // be asked to approve what they cannot see.
  return json::textOr(request, "description", "Claude Code needs permission to continue.");
}

}  // namespace

JsonObject ClaudePermissions::inputOf(const JsonObject& request) {
  const JsonObject* input = json::object(request, "input");
  return input ? *input : JsonObject{};
}

PermissionRequest ClaudePermissions::ask(std::string controlRequestID, const JsonObject& request) {
  JsonObject input = inputOf(request);
  PermissionRequest made;
  made.id = nextID_++;
  made.title = titleOf(request);
  made.detail = detailOf(request, input);
  // Nothing that allows for good: rules that last lie in Claude Code's own settings.
  made.options = {{std::string(denyOption), "Deny", "reject_once"},
                  {std::string(allowOnceOption), "Allow once", "allow_once"}};
  pending_.emplace(made.id, Pending{std::move(controlRequestID), std::move(input)});
  return made;
}

std::optional<JsonObject> ClaudePermissions::answer(std::int64_t id, std::string_view optionID) {
  auto node = pending_.extract(id);
  if (node.empty()) return std::nullopt;
  Pending& asked = node.mapped();
  return optionID == allowOnceOption
             ? claude::allowAnswer(std::move(asked.controlRequestID), std::move(asked.input))
             : claude::denyAnswer(std::move(asked.controlRequestID));
}

std::vector<JsonObject> ClaudePermissions::denyAll() {
  std::vector<JsonObject> denials;
  for (auto& [id, asked] : std::exchange(pending_, {})) {
    denials.push_back(claude::denyAnswer(std::move(asked.controlRequestID)));
  }
  return denials;
}

std::optional<std::int64_t> ClaudePermissions::withdraw(std::string_view controlRequestID) {
  const auto found = std::ranges::find_if(pending_, [controlRequestID](const auto& entry) {
    return entry.second.controlRequestID == controlRequestID;
  });
  if (found == pending_.end()) return std::nullopt;
  const auto id = found->first;
  pending_.erase(found);
  return id;
}

}  // namespace vantrell
