#include "runtimes/acp/acp_messages.h"

#include <fmt/format.h>

#include "platform/text/text.h"
#include "platform/values/json_objects.h"

namespace vantrell {

namespace acp {

JsonObject selectedOutcome(std::string optionID) {
  return {{"outcome", JsonObject{{"outcome", "selected"}, {"optionId", std::move(optionID)}}}};
}

JsonObject cancelledOutcome() {
  return {{"outcome", JsonObject{{"outcome", "cancelled"}}}};
}

namespace {

/// The texts of a tool call's "content". Kimi Code puts there what it is about to do, and sends no
/// "rawInput" with the question; the user must see what an approval allows.
std::string contentText(const JsonObject& toolCall) {
  std::vector<std::string> texts;
  for (const JsonObject* block : json::objects(toolCall, "content")) {
    std::string words = json::textOr(json::objectOrEmpty(*block, "content"), "text", "");
    if (!words.empty()) texts.push_back(std::move(words));
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
  const JsonObject& toolCall = json::objectOrEmpty(params, "toolCall");
  PermissionRequest made;
  made.id = id;
  made.title = json::textOr(toolCall, "title", "Run a tool");
  made.detail = permissionDetail(toolCall, runtimeName);
  for (const JsonObject* option : json::objects(params, "options")) {
    const std::string* optionID = json::text(*option, "optionId");
    const std::string* name = json::text(*option, "name");
    if (!optionID || !name) continue;
    made.options.push_back({*optionID, *name, json::textOr(*option, "kind", "allow_once")});
  }
  return made;
}

namespace {

/// The "id" of a config option, by which one is recognised; runtimes differ in how they spell it.
std::string optionName(const JsonObject& entry) {
  if (const auto* id = json::text(entry, "id")) return text::lowercased(*id);
  return text::lowercased(json::textOr(entry, "configId", ""));
}

using Objects = std::vector<const JsonObject*>;

const JsonObject* findEntry(const Objects& entries, std::string_view exact, std::string_view part) {
  const auto found = std::ranges::find_if(entries, [&](const JsonObject* entry) {
    const std::string name = optionName(*entry);
    return name == exact || name.contains(part);
  });
  return found == entries.end() ? nullptr : *found;
}

const std::string* valueOf(const JsonObject& choice) {
  const std::string* value = json::text(choice, "value");
  return value ? value : json::text(choice, "id");
}

std::vector<ProviderEffortOption> effortOptions(const Objects& entries) {
  std::vector<ProviderEffortOption> efforts{ProviderEffortOption::defaultOption()};
  const JsonObject* entry = findEntry(entries, "effort", "reasoning");
  for (const JsonObject* choice : entry ? json::objects(*entry, "options") : Objects()) {
    if (const std::string* value = valueOf(*choice)) {
      efforts.push_back(
          ProviderEffortOption::named(*value, json::textOr(*choice, "description", "")));
    }
  }
  return efforts;
}

}  // namespace

std::vector<ProviderModelOption> modelOptions(const JsonObject& result,
                                              std::string_view providerLabel) {
  const bool isInside = !json::array(result, "configOptions");
  const auto entries =
      json::objects(isInside ? json::objectOrEmpty(result, "session") : result, "configOptions");
  const JsonObject* model = findEntry(entries, "model", "model");
  if (!model) return {};
  const auto efforts = effortOptions(entries);
  const std::string* current = json::text(*model, "currentValue");
  if (!current) current = json::text(*model, "value");

  std::vector<ProviderModelOption> options;
  for (const JsonObject* choice : json::objects(*model, "options")) {
    const std::string* id = valueOf(*choice);
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
