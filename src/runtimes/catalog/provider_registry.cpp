#include "runtimes/catalog/provider_registry.h"

#include <vector>

#include "records/stores/json_fields.h"

namespace vantrell {

static constexpr auto fieldsOf(const ProviderCapabilities*) {
  using R = ProviderCapabilities;
  return fields(field("chat", &R::chat), field("tools", &R::tools), field("images", &R::images),
                field("reasoningEffort", &R::reasoningEffort),
                field("usageReporting", &R::usageReporting),
                field("manualUsageReset", &R::manualUsageReset),
                field("resumableSessions", &R::resumableSessions),
                field("backgroundExecution", &R::backgroundExecution));
}

static constexpr auto fieldsOf(const ProviderDescriptor*) {
  using R = ProviderDescriptor;
  return fields(field("id", &R::id), field("label", &R::label), field("shortLabel", &R::shortLabel),
                field("systemImage", &R::systemImage), field("category", &R::category),
                field("executionLocation", &R::executionLocation),
                field("billingMode", &R::billingMode), field("capabilities", &R::capabilities),
                field("summary", &R::summary));
}

void writeJson(JsonWriter& writer, const ProviderDescriptor& descriptor, const JsonPolicy& policy) {
  writeJson<ProviderDescriptor>(writer, descriptor, policy);
}

std::expected<ProviderDescriptor, DecodeError> decodeDescriptor(const Json& json,
                                                                const JsonPolicy& policy) {
  ProviderDescriptor descriptor;
  JsonReading reading{policy};
  if (!readJson(json, descriptor, reading)) return std::unexpected(std::move(reading.error));
  return descriptor;
}

std::span<const ProviderDescriptor> ProviderRegistry::all() {
  static const std::vector<ProviderDescriptor> descriptors = [] {
    std::vector<ProviderDescriptor> list;
    for (const auto provider : allAgentProviders) list.push_back(descriptor(provider));
    return list;
  }();
  return descriptors;
}

const ProviderDescriptor& ProviderRegistry::descriptor(AgentProvider provider) {
  return providerFacts(provider).descriptor;
}

std::string_view ProviderRegistry::setupHint(AgentProvider provider) {
  return providerFacts(provider).setupHint;
}

std::vector<AgentProvider> ProviderRegistry::routingOrder(ProviderRoutingMode mode,
                                                          std::optional<AgentProvider> active) {
  if (!allowsAutomaticHandoff(mode)) return {firstChoice(mode)};
  std::vector<AgentProvider> order;
  for (const auto& each : all()) {
    if (each.category == ProviderCategory::subscription) order.push_back(each.id);
  }
  order.insert(mode == ProviderRoutingMode::localFirst ? order.begin() : order.end(),
               AgentProvider::local);
  const auto place = active ? std::ranges::find(order, *active) : order.end();
  if (place != order.end()) std::rotate(order.begin(), place, place + 1);
  return order;
}

}  // namespace vantrell
