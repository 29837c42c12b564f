#include "runtimes/acp/acp_messages.h"

#include <fmt/format.h>

#include "platform/text/text.h"
#include "records/values/application.h"

namespace vantrell {

namespace acp {

JsonObject initializeParams() {
  return {{"protocolVersion", 1},
          {"clientCapabilities",
           JsonObject{{"fs", JsonObject{{"readTextFile", true}, {"writeTextFile", true}}},
                      {"terminal", true}}},
          {"clientInfo", JsonObject{{"name", applicationName}, {"version", applicationVersion}}}};
}

JsonObject newSessionParams(const ACPConfiguration& configuration) {
  JsonObject params{{"cwd", configuration.workspacePath}, {"mcpServers", Json::Array{}}};
  switch (configuration.permissionMode) {
    case GrokPermissionMode::ask: break;
    case GrokPermissionMode::auto_: params.set("_meta", JsonObject{{"autoMode", true}}); break;
    case GrokPermissionMode::fullAccess: params.set("_meta", JsonObject{{"yoloMode", true}}); break;
  }
  return params;
}

JsonObject loadSessionParams(const ACPConfiguration& configuration, const std::string& sessionId) {
  return {{"sessionId", sessionId},
          {"cwd", configuration.workspacePath},
          {"mcpServers", Json::Array{}}};
}

JsonObject configOptionParams(const std::string& sessionId, std::string_view option,
                              std::string value) {
  return {{"sessionId", sessionId}, {"configId", option}, {"value", std::move(value)}};
}

JsonObject promptParams(const std::string& sessionId, std::string prompt) {
  return {{"sessionId", sessionId},
          {"prompt", Json::Array{JsonObject{{"type", "text"}, {"text", std::move(prompt)}}}}};
}

JsonObject selectedOutcome(std::string optionID) {
  return {{"outcome", JsonObject{{"outcome", "selected"}, {"optionId", std::move(optionID)}}}};
}

JsonObject cancelledOutcome() {
  return {{"outcome", JsonObject{{"outcome", "cancelled"}}}};
}

namespace {

/// The texts of a tool call's "content". Kimi Code puts there what it is about to do, and sends no
/// "rawInput" with the question; nobody should be asked to approve what they cannot see.
std::string contentText(const JsonObject& toolCall) {
  std::vector<std::string> texts;
  const Json::Array* blocks = json::array(toolCall, "content");
  if (!blocks) return {};
  for (const Json& each : *blocks) {
    const JsonObject* block = each.asObject();
    const JsonObject* content = block ? json::object(*block, "content") : nullptr;
    const std::string* words = content ? json::text(*content, "text") : nullptr;
    if (words && !words->empty()) texts.push_back(*words);
  }
  return text::joined(texts, "\n");
}

std::string permissionDetail(const JsonObject& toolCall, const std::string& runtimeName) {
  const Json* input = toolCall.find("rawInput");
  if (input && !input->isNull()) return json::writePrettySorted(*input);
  std::string shown = contentText(toolCall);
  return shown.empty() ? runtimeName + " is requesting permission to continue." : shown;
}

}  // namespace

PermissionRequest permissionRequest(std::int64_t id, const JsonObject& params,
                                    const std::string& runtimeName) {
  static const JsonObject nothing;
  const JsonObject* given = json::object(params, "toolCall");
  const JsonObject& toolCall = given ? *given : nothing;

  PermissionRequest made;
  made.id = id;
  made.title = json::textOr(toolCall, "title", "Run a tool");
  made.detail = permissionDetail(toolCall, runtimeName);
  if (const Json::Array* options = json::array(params, "options")) {
    for (const Json& each : *options) {
      const JsonObject* option = each.asObject();
      const std::string* optionID = option ? json::text(*option, "optionId") : nullptr;
      const std::string* name = option ? json::text(*option, "name") : nullptr;
      if (!optionID || !name) continue;
      made.options.push_back({*optionID, *name, json::textOr(*option, "kind", "allow_once")});
    }
  }
  return made;
}

namespace {

/// The "id" of a config option, by which one is recognised; runtimes differ in how they spell it.
std::string optionName(const JsonObject& entry) {
  if (const auto* id = json::text(entry, "id")) return text::lowercased(*id);
  return text::lowercased(json::textOr(entry, "configId", ""));
}

const JsonObject* findOption(const Json::Array& entries, std::string_view exact,
                             std::string_view part) {
  for (const Json& each : entries) {
    const JsonObject* entry = each.asObject();
    if (!entry) continue;
    const std::string name = optionName(*entry);
    if (name == exact || name.contains(part)) return entry;
  }
  return nullptr;
}

const std::string* valueOf(const JsonObject& choice) {
  const std::string* value = json::text(choice, "value");
  return value ? value : json::text(choice, "id");
}

std::vector<ProviderEffortOption> effortOptions(const Json::Array& entries) {
  std::vector<ProviderEffortOption> efforts{ProviderEffortOption::defaultOption()};
  const JsonObject* entry = findOption(entries, "effort", "reasoning");
  const Json::Array* choices = entry ? json::array(*entry, "options") : nullptr;
  if (!choices) return efforts;
  for (const Json& each : *choices) {
    const JsonObject* choice = each.asObject();
    const std::string* value = choice ? valueOf(*choice) : nullptr;
    if (!value) continue;
    efforts.push_back(
        ProviderEffortOption::named(*value, json::textOr(*choice, "description", "")));
  }
  return efforts;
}

}  // namespace

std::vector<ProviderModelOption> modelOptions(const JsonObject& result,
                                              std::string_view providerLabel) {
  const Json::Array* entries = json::array(result, "configOptions");
  if (!entries) {
    const JsonObject* session = json::object(result, "session");
    entries = session ? json::array(*session, "configOptions") : nullptr;
  }
  const JsonObject* model = entries ? findOption(*entries, "model", "model") : nullptr;
  const Json::Array* choices = model ? json::array(*model, "options") : nullptr;
  if (!choices || choices->empty()) return {};

  const auto efforts = effortOptions(*entries);
  const std::string* current = json::text(*model, "currentValue");
  if (!current) current = json::text(*model, "value");

  std::vector<ProviderModelOption> options;
  for (const Json& each : *choices) {
    const JsonObject* choice = each.asObject();
    const std::string* id = choice ? valueOf(*choice) : nullptr;
    if (!id) continue;
    const std::string label = json::textOr(*choice, "name", json::textOr(*choice, "label", *id));
    options.push_back(
        {*id, label,
         json::textOr(*choice, "description", fmt::format("Available through {}.", providerLabel)),
         current && *current == *id, efforts});
  }
  if (!options.empty()) {
    options.insert(options.begin(), ProviderModelOption::defaultOption(efforts));
  }
  return options;
}

}  // namespace acp
}  // namespace vantrell
