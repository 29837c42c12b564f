#include "runtimes/codex/codex_approvals.h"

#include <fmt/format.h>

#include "platform/text/text.h"
#include "platform/values/json_objects.h"

namespace vantrell::codex {

namespace {

constexpr std::string_view commandApproval = "item/commandExecution/requestApproval";
constexpr std::string_view fileApproval = "item/fileChange/requestApproval";
constexpr std::string_view permissionsApproval = "item/permissions/requestApproval";

void addUnlessEmpty(std::vector<std::string>& parts, std::string part) {
  if (!part.empty()) parts.push_back(std::move(part));
}

/// One change of a file: what is done to which, and the difference.
std::string describeChange(const JsonObject& change) {
  const JsonObject* kind = json::object(change, "kind");
  std::string word = json::textOr(kind ? *kind : change, kind ? "type" : "kind", "change");
  std::string shown = fmt::format("{} {}", word, json::textOr(change, "path", "a file"));
  if (const std::string* target = kind ? json::text(*kind, "move_path") : nullptr) {
    shown += " -> " + *target;
  }
  if (const std::string* diff = json::text(change, "diff")) {
    shown += "\n" + diff->substr(0, diff->find_last_not_of('\n') + 1);
  }
  return shown;
}

/// Without the nulls, by which Codex says that something is not asked for.
std::string describePermissions(const JsonObject& permissions) {
  JsonObject asked;
  for (const auto& [key, value] : permissions) {
    if (!value.isNull()) asked.set(key, value);
  }
  return asked.empty() ? std::string() : json::writePrettySorted(asked);
}

/// What an approval would allow beside the command. Codex gives its reason for a question at most,
/// and leaves the rest to the item and to further keys; the user must see what an approval allows.
std::vector<std::string> describeObject(const JsonObject& params, const JsonObject* item) {
  std::vector<std::string> parts;
  if (item) {
    for (const auto* change : json::objects(*item, "changes")) {
      parts.push_back(describeChange(*change));
    }
  }
  if (const std::string* root = json::text(params, "grantRoot")) {
    parts.push_back(fmt::format("Write access to {}", *root));
  }
  if (const JsonObject* network = json::object(params, "networkApprovalContext")) {
    parts.push_back(fmt::format("Network access to {} ({})", json::textOr(*network, "host", "?"),
                                json::textOr(*network, "protocol", "?")));
  }
  for (const std::string_view key : {"permissions", "additionalPermissions"}) {
    addUnlessEmpty(parts, describePermissions(json::objectOrEmpty(params, key)));
  }
  return parts;
}

}  // namespace

const Json* rpcID(const JsonObject& message, std::string_view key) {
  const Json* id = message.find(key);
  return id && (id->isNumber() || id->asText()) ? id : nullptr;
}

bool isApproval(std::string_view method) {
  return method == commandApproval || method == fileApproval || method == permissionsApproval;
}

PermissionRequest approvalQuestion(std::int64_t id, std::string_view method,
                                   const JsonObject& params, const JsonObject* item) {
  const std::string* command = json::text(params, "command");
  if (!command && item) command = json::text(*item, "command");

  PermissionRequest question;
  question.id = id;
  question.title = command                         ? "Run command"
                   : method.contains("fileChange") ? "Edit files"
                                                   : "Grant access";
  std::vector<std::string> parts;
  if (command) addUnlessEmpty(parts, *command);
  addUnlessEmpty(parts, json::textOr(params, "reason", ""));
  if (parts.empty()) parts.emplace_back("Codex is requesting permission to continue.");
  for (auto& part : describeObject(params, item)) parts.push_back(std::move(part));
  question.detail = text::joined(parts, "\n\n");
  question.options = {{"codex-allow-once", "Allow once", "allow_once"},
                      {"codex-allow-session", "Allow for this task", "allow_always"},
                      {"codex-reject", "Deny", "reject_once"}};
  return question;
}

JsonObject approvalAnswer(const PendingApproval& approval, std::string_view optionID) {
  const bool isForSession = optionID == "codex-allow-session";
  if (approval.method == permissionsApproval) {
    const bool isAllowed = optionID.starts_with("codex-allow");
    return {{"permissions", isAllowed ? approval.requestedPermissions : JsonObject{}},
            {"scope", isForSession ? "session" : "turn"}};
  }
  const std::string_view decision = optionID == "codex-allow-once" ? "accept"
                                    : isForSession                 ? "acceptForSession"
                                    : optionID == cancelOption     ? "cancel"
                                                                   : "decline";
  return {{"decision", decision}};
}

}  // namespace vantrell::codex
