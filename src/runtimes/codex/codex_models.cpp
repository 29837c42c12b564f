#include "runtimes/codex/codex_models.h"

#include <algorithm>

namespace vantrell::codex {

namespace {

std::vector<ProviderEffortOption> effortsOf(const JsonObject& model) {
  std::vector<ProviderEffortOption> efforts{ProviderEffortOption::defaultOption()};
  const Json::Array* given = json::array(model, "supportedReasoningEfforts");
  if (!given) return efforts;
  for (const Json& each : *given) {
    const JsonObject* effort = each.asObject();
    const std::string* id = effort ? json::text(*effort, "reasoningEffort") : nullptr;
    if (!id) continue;
    efforts.push_back(ProviderEffortOption::named(*id, json::textOr(*effort, "description", "")));
  }
  return efforts;
}

}  // namespace

std::vector<ProviderModelOption> unknownModels() {
  return {ProviderModelOption::defaultOption({ProviderEffortOption::defaultOption()})};
}

std::vector<ProviderModelOption> modelOptions(const JsonObject& result) {
  std::vector<ProviderModelOption> models;
  const Json::Array* data = json::array(result, "data");
  if (!data) return models;
  for (const Json& each : *data) {
    const JsonObject* model = each.asObject();
    const std::string* id = model ? json::text(*model, "model") : nullptr;
    if (!id || id->empty() || json::boolean(*model, "hidden").value_or(false)) continue;
    models.push_back({*id, json::textOr(*model, "displayName", *id),
                      json::textOr(*model, "description", ""),
                      json::boolean(*model, "isDefault").value_or(false), effortsOf(*model)});
  }
  if (models.empty()) return models;
  const auto usual = std::ranges::find(models, true, &ProviderModelOption::isDefault);
  models.insert(models.begin(), usual == models.end()
                                    ? unknownModels().front()
                                    : ProviderModelOption::defaultOption(usual->efforts));
  return models;
}

}  // namespace vantrell::codex
