// The descriptors of all providers, their JSON, and the order in which a route asks them.
// Immutable; any thread.
#pragma once

#include <expected>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "platform/values/json.h"
#include "records/stores/json_policy.h"
#include "runtimes/catalog/provider_table.h"

namespace vantrell {

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
/// The providers to try for a turn, in order. On an automatic route the active provider comes
/// first; Tasklet is in none, so that only a choice reaches it. A fixed route has one provider.
std::vector<AgentProvider> routingOrder(ProviderRoutingMode mode,
                                        std::optional<AgentProvider> active);
}  // namespace ProviderRegistry

}  // namespace vantrell
