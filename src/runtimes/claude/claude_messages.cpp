#include "runtimes/claude/claude_messages.h"

#include <charconv>

#include "platform/text/text.h"
#include "platform/values/json_objects.h"

namespace vantrell::claude {

// ---- written ------------------------------------------------------------------------------------

namespace {

constexpr std::string_view controlRequestPrefix = "vantrell_";

const char* permissionModeArgument(GrokPermissionMode mode) {
  switch (mode) {
    case GrokPermissionMode::ask: return "default";
    case GrokPermissionMode::auto_: return "auto";
    case GrokPermissionMode::fullAccess: return "bypassPermissions";
  }
  return "default";
}

/// `value` is what goes with the kind: the decision, or the words of an error.
JsonObject answer(const char* subtype, std::string requestID, const char* key, Json value) {
  return {{"type", "control_response"},
          {"response", JsonObject{{"subtype", subtype},
                                  {"request_id", std::move(requestID)},
                                  {key, std::move(value)}}}};
}

}  // namespace

std::vector<std::string> processArguments(const AgentConfiguration& configuration,
                                          const std::string& sessionID, bool resumes) {
  std::vector<std::string> arguments{
      "--output-format",
      "stream-json",
      "--verbose",
      "--input-format",
      "stream-json",
      "--include-partial-messages",
      "--permission-prompt-tool",
      "stdio",
      "--setting-sources=user,project,local",
      "--permission-mode",
      permissionModeArgument(configuration.permissionMode),
      "--model",
      configuration.model.value_or("sonnet"),
  };
  const auto& effort = configuration.effort;
  if (effort && !effort->empty() && *effort != "default") {
    arguments.insert(arguments.end(), {"--effort", *effort});
  }
  // One argument each, so that no id can be taken for an option.
  arguments.push_back((resumes ? "--resume=" : "--session-id=") + sessionID);
  return arguments;
}

std::string controlRequestID(std::int64_t number) {
  return std::string(controlRequestPrefix) + std::to_string(number);
}

std::optional<std::int64_t> numberOfControlRequest(std::string_view id) {
  if (!id.starts_with(controlRequestPrefix)) return std::nullopt;
  const std::string_view digits = id.substr(controlRequestPrefix.size());
  std::int64_t number = 0;
  const auto read = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  if (read.ec != std::errc() || controlRequestID(number) != id) return std::nullopt;
  return number;
}

JsonObject allowAnswer(std::string requestID, JsonObject input) {
  return answer("success", std::move(requestID), "response",
                JsonObject{{"behavior", "allow"}, {"updatedInput", std::move(input)}});
}

JsonObject denyAnswer(std::string requestID) {
  return answer("success", std::move(requestID), "response",
                JsonObject{{"behavior", "deny"}, {"message", "Denied by the user in vantrell."}});
}

JsonObject errorAnswer(std::string requestID, std::string text) {
  return answer("error", std::move(requestID), "error", std::move(text));
}

// ---- read ---------------------------------------------------------------------------------------

bool endsTurnOfItsOwn(const JsonObject& result) {
  // A turn that a prompt began has no origin, or the origin "human". The other kinds are Claude
  // Code's own, such as "task-notification".
  return json::textOr(json::objectOrEmpty(result, "origin"), "kind", "human") != "human";
}

namespace {

/// The texts of "errors"; absent when it is not a list of texts or has none.
std::optional<std::string> joinedErrors(const JsonObject& result) {
  const Json::Array* given = json::array(result, "errors");
  if (!given || given->empty()) return std::nullopt;
  std::vector<std::string> texts;
  for (const Json& each : *given) {
    const std::string* words = each.asText();
    if (!words) return std::nullopt;
    texts.push_back(*words);
  }
  return text::joined(texts, "; ");
}

std::string failureMessage(const JsonObject& result) {
  if (auto errors = joinedErrors(result)) return std::move(*errors);
  if (const std::string* words = json::text(result, "result")) return *words;
  return json::textOr(result, "subtype", "Claude Code could not complete the turn.");
}

}  // namespace

std::optional<AgentRuntimeError> failureOf(const JsonObject& result) {
  // A list of errors alone is no failure: Claude Code has recovered from them.
  if (!json::boolean(result, "is_error").value_or(false)) return std::nullopt;
  std::string message = failureMessage(result);
  const auto kind = errorKind(message, json::integer(result, "api_error_status"));
  return AgentRuntimeError{AgentProvider::claude, kind, std::move(message)};
}

AgentRuntimeError::Kind errorKind(std::string_view message, std::optional<std::int64_t> status) {
  using Kind = AgentRuntimeError::Kind;
  const std::string words = text::lowercased(message);
  const auto says = [&words](std::string_view part) { return words.contains(part); };
  // A server that is busy for everybody answers 429 too, and says whose limit it is not.
  if (says("not your usage limit")) return Kind::protocolError;
  if (status == 429) return Kind::usageLimit;
  if (says("rate limit") || says("usage limit") || says("quota")) return Kind::usageLimit;
  if (status == 401 || status == 403) return Kind::authentication;
  if (says("login") || says("authentication") || says("unauthorized")) return Kind::authentication;
  return Kind::protocolError;
}

bool isSessionLost(std::string_view lastWords) {
  return lastWords.contains("No conversation found with session ID");
}

ProviderUsage usage(const JsonObject& rateLimitInfo) {
  ProviderUsage made;
  made.provider = AgentProvider::claude;
  if (const auto share = json::number(rateLimitInfo, "utilization")) {
    made.primaryUsedPercent = *share * 100;
  }
  // Claude Code 2 writes these two in camel case.
  auto reset = json::number(rateLimitInfo, "resets_at");
  if (!reset) reset = json::number(rateLimitInfo, "resetsAt");
  if (reset) made.resetsAt = Date::sinceUnixEpoch(*reset);
  const std::string* plan = json::text(rateLimitInfo, "rate_limit_type");
  if (!plan) plan = json::text(rateLimitInfo, "rateLimitType");
  if (plan) made.planType = *plan;
  // Claude Code 2 also reports "rejected" when the server is busy for everybody: that names neither
  // a limit nor its reset.
  const bool isServersOwn = !reset && !plan && rateLimitInfo.find("isUsingOverage");
  made.exhausted = json::textOr(rateLimitInfo, "status", "") == "rejected" && !isServersOwn;
  return made;
}

std::vector<ProviderModelOption> modelOptions(const JsonObject& initialized) {
  std::vector<ProviderModelOption> options{
      ProviderModelOption::defaultOption({ProviderEffortOption::defaultOption()})};
  for (const JsonObject* model : json::objects(initialized, "models")) {
    const std::string id = json::textOr(*model, "value", "");
    std::string detail = json::textOr(*model, "description", "");
    // Such a model is billed per use, which no subscription covers.
    if (id.empty() || text::lowercased(detail).contains("usage credits")) continue;
    std::vector<ProviderEffortOption> efforts{ProviderEffortOption::defaultOption()};
    if (const Json::Array* levels = json::array(*model, "supportedEffortLevels")) {
      for (const Json& level : *levels) {
        if (level.asText()) efforts.push_back(ProviderEffortOption::named(*level.asText(), ""));
      }
    }
    if (id == "default") {
      options.front().efforts = std::move(efforts);
    } else {
      options.push_back({id, json::textOr(*model, "displayName", id), std::move(detail),
                         id == "sonnet", std::move(efforts)});
    }
  }
  return options.size() > 1 ? options : std::vector<ProviderModelOption>();
}

}  // namespace vantrell::claude
