// What each provider is: one row of one table says everything about it that is data. Immutable; any
// thread.
#pragma once

#include <expected>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/values/json.h"
#include "records/stores/json_policy.h"
#include "records/values/agent_provider.h"
#include "records/values/raw_text.h"
#include "records/values/task_modes.h"

namespace vantrell {

enum class ProviderCategory { subscription, local, cloud };
constexpr auto rawTexts(ProviderCategory) {
  return std::to_array<std::string_view>({"subscription", "local", "cloud"});
}

/// Where the work is done.
enum class ProviderExecutionLocation { thisMac, localNetwork, cloud };
constexpr auto rawTexts(ProviderExecutionLocation) {
  return std::to_array<std::string_view>({"this_mac", "local_network", "cloud"});
}

/// Who pays for a turn, and how. None of the present providers is `meteredAPI`: it is there for the
/// guard that keeps such a one out.
enum class ProviderBillingMode { subscription, localCompute, externalPlan, meteredAPI };
constexpr auto rawTexts(ProviderBillingMode) {
  return std::to_array<std::string_view>(
      {"subscription", "local_compute", "external_plan", "metered_api"});
}

struct ProviderCapabilities {
  bool chat = false;
  bool tools = false;
  bool images = false;
  bool reasoningEffort = false;
  bool usageReporting = false;
  bool manualUsageReset = false;  // the user may spend a credit on a fresh allowance
  bool resumableSessions = false;
  bool backgroundExecution = false;

  bool operator==(const ProviderCapabilities&) const = default;
};

struct ProviderDescriptor {
  AgentProvider id = AgentProvider::grok;
  std::string label;
  std::string shortLabel;   // for tight places and status lines
  std::string systemImage;  // name of its icon
  ProviderCategory category = ProviderCategory::subscription;
  ProviderExecutionLocation executionLocation = ProviderExecutionLocation::thisMac;
  ProviderBillingMode billingMode = ProviderBillingMode::subscription;
  ProviderCapabilities capabilities;
  std::string summary;  // one sentence

  bool operator==(const ProviderDescriptor&) const = default;
};

/// All of the descriptor, as one object.
void writeJson(JsonWriter& writer, const ProviderDescriptor& descriptor, const JsonPolicy& policy);
std::expected<ProviderDescriptor, DecodeError> decodeDescriptor(const Json& json,
                                                                const JsonPolicy& policy);

namespace ProviderRegistry {
/// In the order of AgentProvider.
std::span<const ProviderDescriptor> all();
const ProviderDescriptor& descriptor(AgentProvider provider);
/// What to do when no client can be made.
std::string_view setupHint(AgentProvider provider);
/// Who is asked for a turn, in this order. On an automatic route the active provider comes first;
/// Tasklet stands in none, so that only a choice reaches it. A fixed route has one provider.
std::vector<AgentProvider> routingOrder(ProviderRoutingMode mode,
                                        std::optional<AgentProvider> active);
}  // namespace ProviderRegistry

}  // namespace vantrell
