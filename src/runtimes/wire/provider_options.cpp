#include "runtimes/wire/provider_options.h"

#include <fmt/format.h>

namespace vantrell {

namespace {
std::string capitalized(std::string text) {
  // Effort ids are ASCII words in every runtime.
  if (!text.empty() && text[0] >= 'a' && text[0] <= 'z') text[0] = static_cast<char>(text[0] - 32);
  return text;
}
}  // namespace

ProviderEffortOption ProviderEffortOption::named(std::string id, std::string detail) {
  if (detail.empty()) detail = fmt::format("Use {} reasoning effort for this session.", id);
  std::string label = id == "xhigh" ? "Extra high" : capitalized(id);
  return {std::move(id), std::move(label), std::move(detail)};
}

ProviderEffortOption ProviderEffortOption::defaultOption() {
  return {"default", "Default", "Use the model's recommended reasoning effort."};
}

std::vector<ProviderEffortOption> ProviderEffortOption::list(
    const std::vector<std::string_view>& ids) {
  std::vector<ProviderEffortOption> efforts{defaultOption()};
  for (const auto id : ids) efforts.push_back(named(std::string(id), ""));
  return efforts;
}

ProviderModelOption ProviderModelOption::defaultOption(std::vector<ProviderEffortOption> efforts) {
  return {"default", "Default", "Use the provider's recommended model.", true, std::move(efforts)};
}

std::vector<ProviderEffortOption> effortsOf(const std::vector<ProviderModelOption>& models,
                                            const std::optional<std::string>& modelID) {
  const auto* model = findOption(models, modelID.value_or("default"));
  if (!model) model = findOption(models, "default");
  if (model && !model->efforts.empty()) return model->efforts;
  return {ProviderEffortOption::defaultOption()};
}

}  // namespace vantrell
