#include "runtimes/codex/codex_messages.h"

#include "platform/text/text.h"
#include "platform/values/uuid.h"
#include "records/values/application.h"

namespace vantrell::codex {

namespace {

using Kind = AgentRuntimeError::Kind;

std::string_view approvalPolicy(GrokPermissionMode mode) {
  return mode == GrokPermissionMode::fullAccess ? "never" : "on-request";
}

/// Who decides what goes beyond the sandbox: in automatic mode Codex's own reviewer.
std::string_view approvalsReviewer(GrokPermissionMode mode) {
  return mode == GrokPermissionMode::auto_ ? "auto_review" : "user";
}

std::string_view threadSandbox(GrokPermissionMode mode) {
  return mode == GrokPermissionMode::fullAccess ? "danger-full-access" : "workspace-write";
}

JsonObject turnSandboxPolicy(const AgentConfiguration& configuration) {
  if (configuration.permissionMode == GrokPermissionMode::fullAccess) {
    return {{"type", "dangerFullAccess"}};
  }
  return {{"type", "workspaceWrite"},
          {"writableRoots", Json::Array{configuration.workspacePath}},
          {"networkAccess", false}};
}

void setIfPresent(JsonObject& params, std::string key, const std::optional<std::string>& value) {
  if (value && !value->empty()) params.set(std::move(key), *value);
}

}  // namespace

JsonObject initializeParams(std::string_view version) {
  return {{"clientInfo",
           JsonObject{{"name", applicationName}, {"title", applicationName}, {"version", version}}},
          {"capabilities", JsonObject{{"experimentalApi", true}}}};
}

JsonObject threadStartParams(const AgentConfiguration& configuration) {
  const auto mode = configuration.permissionMode;
  JsonObject params{{"cwd", configuration.workspacePath},
                    {"approvalPolicy", approvalPolicy(mode)},
                    {"approvalsReviewer", approvalsReviewer(mode)},
                    {"sandbox", threadSandbox(mode)}};
  setIfPresent(params, "model", configuration.model);
  return params;
}

JsonObject threadResumeParams(const AgentConfiguration& configuration,
                              const std::string& threadId) {
  JsonObject params{{"threadId", threadId}};
  for (const auto& [key, value] : threadStartParams(configuration)) params.set(key, value);
  return params;
}

JsonObject turnStartParams(const AgentConfiguration& configuration, const std::string& threadId,
                           std::string prompt) {
  const auto mode = configuration.permissionMode;
  JsonObject params{
      {"threadId", threadId},
      {"input", Json::Array{JsonObject{{"type", "text"}, {"text", std::move(prompt)}}}},
      {"approvalPolicy", approvalPolicy(mode)},
      {"approvalsReviewer", approvalsReviewer(mode)},
      {"sandboxPolicy", turnSandboxPolicy(configuration)}};
  setIfPresent(params, "model", configuration.model);
  setIfPresent(params, "effort", configuration.effort);
  return params;
}

JsonObject turnInterruptParams(const std::string& threadId, const std::string& turnId) {
  return {{"threadId", threadId}, {"turnId", turnId}};
}

JsonObject consumeResetCreditParams() {
  return {{"idempotencyKey", Uuid::random().text()}};
}

std::string resetOutcome(const JsonObject& result) {
  return json::textOr(result, "outcome", "nothingToReset");
}

AgentRuntimeError failure(Kind kind, std::string message) {
  return {AgentProvider::codex, kind, std::move(message)};
}

AgentRuntimeError runtimeError(const JsonObject& from, std::string_view fallback) {
  const JsonObject* inner = json::object(from, "error");
  const auto find = [&](std::string_view key) {
    const std::string* found = json::text(from, key);
    return found || !inner ? found : json::text(*inner, key);
  };
  const std::string* words = find("message");
  std::string message(words ? std::string_view(*words) : fallback);
  const std::string* info = find("codexErrorInfo");

  const std::string lowered = text::lowercased(message);
  const auto says = [&lowered](std::string_view phrase) { return lowered.contains(phrase); };
  auto kind = Kind::protocolError;
  // Where the server answers 429 to every try, the allowance is used up, whatever else it says.
  if ((info && *info == "usageLimitExceeded") || says("usage limit") ||
      (says("exceeded retry limit") && says("status: 429"))) {
    kind = Kind::usageLimit;
  } else if ((info && *info == "unauthorized") || says("unauthorized") || says("login")) {
    kind = Kind::authentication;
  }
  return failure(kind, std::move(message));
}

}  // namespace vantrell::codex
