#include "engine/providers/reported_models.h"

#include "records/stores/orchestration_store.h"
#include "records/values/raw_text.h"

namespace vantrell {

static constexpr auto fieldsOf(const ProviderEffortOption*) {
  using Effort = ProviderEffortOption;
  return fields(field("id", &Effort::id), field("label", &Effort::label),
                field("detail", &Effort::detail, orDefault));
}

static constexpr auto fieldsOf(const ProviderModelOption*) {
  using Model = ProviderModelOption;
  return fields(field("id", &Model::id), field("label", &Model::label),
                field("detail", &Model::detail, orDefault),
                field("isDefault", &Model::isDefault, orDefault),
                field("efforts", &Model::efforts, orDefault));
}

namespace {
constexpr std::string_view fileName = "provider-models.json";
using Stored = std::map<std::string, ReportedModels::Options>;
}  // namespace

void ReportedModels::load() {
  options_.clear();
  for (auto& [name, options] : store_.load(fileName, Stored())) {
    const auto provider = fromRawText<AgentProvider>(name);
    if (provider) options_[*provider] = std::move(options);
  }
}

const ReportedModels::Options* ReportedModels::find(AgentProvider provider) const {
  const auto found = options_.find(provider);
  return found == options_.end() ? nullptr : &found->second;
}

void ReportedModels::keep(AgentProvider provider, const Options& options) {
  const bool namesModels = std::ranges::any_of(
      options, [](const ProviderModelOption& each) { return each.id != "default"; });
  if (!namesModels || provider == AgentProvider::local) return;
  if (const Options* known = find(provider); known && *known == options) return;
  options_[provider] = options;
  save();
}

void ReportedModels::forget(AgentProvider provider) {
  if (options_.erase(provider) > 0) save();
}

void ReportedModels::save() {
  Stored stored;
  for (const auto& [provider, options] : options_) {
    stored[std::string(rawText(provider))] = options;
  }
  // A failure costs nothing but that the models are unknown after the next start.
  auto write = store_.prepareSave(stored, fileName);
  if (!writer_) return static_cast<void>(write());
  writer_->post([write = std::move(write)] { static_cast<void>(write()); });
}

}  // namespace vantrell
