#include "views/session_rows.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "runtimes/catalog/provider_registry.h"

namespace vantrell::views {

namespace {

constexpr std::string_view defaultID = "default";

std::string_view labelOf(AgentProvider provider) {
  return ProviderRegistry::descriptor(provider).label;
}

}  // namespace

std::vector<RoutingRow> routingRows(const RoutingPreview& preview,
                                    std::optional<AgentProvider> next) {
  std::vector<RoutingRow> rows;
  for (const auto& each : preview.candidates) {
    rows.push_back({.provider = each.provider,
                    .label = labelOf(each.provider),
                    .reason = each.reason,
                    .allowance = each.usageLabel.value_or(""),
                    .isReady = each.available && !each.exhausted,
                    .isNext = each.provider == next});
  }
  return rows;
}

std::string routingSentence(const RoutingPreview& preview, std::optional<AgentProvider> next) {
  if (!next) return preview.reason + ".";
  if (next == preview.provider) {
    return fmt::format("The next turn goes to {}: {}.", labelOf(*next), preview.reason);
  }
  std::string text = fmt::format("The next turn goes to {}.", labelOf(*next));
  if (preview.provider) {
    text +=
        fmt::format(" {} was chosen for it, but cannot be used now.", labelOf(*preview.provider));
  }
  return text;
}

std::vector<OptionRow> modelRows(const std::vector<ProviderModelOption>& models,
                                 const std::optional<std::string>& chosen) {
  std::vector<OptionRow> rows;
  for (const auto& model : models) {
    std::vector<std::string_view> efforts;
    for (const auto& effort : model.efforts) {
      if (effort.id != defaultID) efforts.push_back(effort.id);
    }
    const bool isRecommended = model.isDefault && model.id != defaultID;
    rows.push_back({.id = model.id,
                    .label = model.label,
                    .detail = (isRecommended ? "recommended; " : "") + model.detail,
                    .efforts = fmt::format("{}", fmt::join(efforts, " ")),
                    .isChosen = model.id == chosen.value_or(std::string(defaultID))});
  }
  return rows;
}

std::vector<OptionRow> effortRows(const std::vector<ProviderEffortOption>& efforts,
                                  const std::optional<std::string>& chosen) {
  std::vector<OptionRow> rows;
  for (const auto& effort : efforts) {
    rows.push_back({.id = effort.id,
                    .label = effort.label,
                    .detail = effort.detail,
                    .isChosen = effort.id == chosen.value_or(std::string(defaultID))});
  }
  return rows;
}

std::string originOfModels(AgentProvider provider, bool areReported,
                           const LocalRuntimeStatus& local) {
  if (provider == AgentProvider::local) {
    if (areReported) return fmt::format("as {} reports them", local.connection()->name);
    return local.reason() ? *local.reason() : "no server was found";
  }
  if (areReported) return fmt::format("as {} reports them", labelOf(provider));
  switch (provider) {
    case AgentProvider::grok:
    case AgentProvider::codex:
      return "its program is not installed, or did not report; \"vantrell providers\" says more";
    case AgentProvider::kimi:
    case AgentProvider::glm: return "it reports further models only while it works on a task";
    case AgentProvider::claude: return "it accepts full names too: vantrell run --model NAME";
    default: return "";
  }
}

}  // namespace vantrell::views
