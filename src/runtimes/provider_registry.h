// What each provider is: one row of one table says everything about it that is data. Immutable; any
// thread.
#pragma once

#include <span>
#include <string_view>

#include "records/agent_provider.h"

namespace vantrell {

struct ProviderDescriptor {
  AgentProvider provider;
  std::string_view label;
  std::string_view shortLabel;  // for tight places and status lines
  std::string_view setupHint;   // what to do when no client can be made
};

namespace ProviderRegistry {
/// In the order of AgentProvider.
std::span<const ProviderDescriptor> all();
const ProviderDescriptor& descriptor(AgentProvider provider);
}  // namespace ProviderRegistry

inline std::string_view shortLabel(AgentProvider provider) {
  return ProviderRegistry::descriptor(provider).shortLabel;
}

}  // namespace vantrell
