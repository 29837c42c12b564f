#include "runtimes/codex/codex_messages.h"

#include "platform/text/text.h"
#include "platform/values/json_objects.h"
#include "platform/values/uuid.h"

namespace vantrell::codex {

namespace {

using Kind = AgentRuntimeError::Kind;

void setUnlessEmpty(JsonObject& params, std::string key, const std::optional<std::string>& value) {
  if (value && !value->empty()) params.set(std::move(key), *value);
}

bool isFree(const AgentConfiguration& configuration) {
  return configuration.permissionMode == GrokPermissionMode::fullAccess;
}

/// What both a thread and a turn are told.
void setApprovals(JsonObject& params, const AgentConfiguration& configuration) {
  params.set("approvalPolicy", isFree(configuration) ? "never" : "on-request");
  // Who decides what goes beyond the sandbox: in automatic mode Codex's own reviewer.
  params.set("approvalsReviewer",
             configuration.permissionMode == GrokPermissionMode::auto_ ? "auto_review" : "user");
}

}  // namespace

JsonObject threadParams(const AgentConfiguration& configuration,
                        const std::optional<std::string>& threadId) {
  JsonObject params;
  if (threadId) params.set("threadId", *threadId);
  params.set("cwd", configuration.workspacePath);
  setApprovals(params, configuration);
  params.set("sandbox", isFree(configuration) ? "danger-full-access" : "workspace-write");
  setUnlessEmpty(params, "model", configuration.model);
  return params;
}

JsonObject turnStartParams(const AgentConfiguration& configuration, const std::string& threadId,
                           std::string prompt) {
  JsonObject params{
      {"threadId", threadId},
      {"input", Json::Array{JsonObject{{"type", "text"}, {"text", std::move(prompt)}}}}};
  setApprovals(params, configuration);
  JsonObject policy{{"type", "dangerFullAccess"}};
  if (!isFree(configuration)) {
    policy = {{"type", "workspaceWrite"},
              {"writableRoots", Json::Array{configuration.workspacePath}},
              {"networkAccess", false}};
  }
  params.set("sandboxPolicy", std::move(policy));
  setUnlessEmpty(params, "model", configuration.model);
  setUnlessEmpty(params, "effort", configuration.effort);
  return params;
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
  const auto find = [&from](std::string_view key) {
    const std::string* found = json::text(from, key);
    return found ? found : json::text(json::objectOrEmpty(from, "error"), key);
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

std::vector<ProviderModelOption> unknownModels() {
  return {ProviderModelOption::defaultOption({ProviderEffortOption::defaultOption()})};
}

std::vector<ProviderModelOption> modelOptions(const JsonObject& result) {
  std::vector<ProviderModelOption> models = unknownModels();
  bool knowsUsual = false;
  for (const JsonObject* model : json::objects(result, "data")) {
    const std::string id = json::textOr(*model, "model", "");
    if (id.empty() || json::boolean(*model, "hidden").value_or(false)) continue;
    std::vector<ProviderEffortOption> efforts{ProviderEffortOption::defaultOption()};
    for (const JsonObject* effort : json::objects(*model, "supportedReasoningEfforts")) {
      if (const std::string* name = json::text(*effort, "reasoningEffort")) {
        efforts.push_back(
            ProviderEffortOption::named(*name, json::textOr(*effort, "description", "")));
      }
    }
    const bool isUsual = json::boolean(*model, "isDefault").value_or(false);
    if (isUsual && !std::exchange(knowsUsual, true)) models.front().efforts = efforts;
    models.push_back({id, json::textOr(*model, "displayName", id),
                      json::textOr(*model, "description", ""), isUsual, std::move(efforts)});
  }
  return models.size() > 1 ? models : std::vector<ProviderModelOption>();
}

}  // namespace vantrell::codex
