// What is told of the way to a provider: who could take a turn, who does, and why. Plain values.
#pragma once

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "records/values/agent_provider.h"
#include "records/values/raw_text.h"

namespace vantrell {

/// How long a provider that the user has chosen for a task stays chosen.
enum class ProviderHandoffScope { nextMessage, continueTask };
constexpr auto rawTexts(ProviderHandoffScope) {
  return std::to_array<std::string_view>({"next_message", "continue_task"});
}
constexpr std::string_view label(ProviderHandoffScope scope) {
  return scope == ProviderHandoffScope::nextMessage ? "Next message only" : "Continue this task";
}

struct RoutingCandidate {
  AgentProvider provider = AgentProvider::grok;
  bool available = false;
  bool exhausted = false;
  std::string reason;
  std::optional<std::string> usageLabel;

  bool operator==(const RoutingCandidate&) const = default;
};

struct RoutingPreview {
  std::optional<AgentProvider> provider;  // absent when none is ready
  std::string reason;
  std::vector<RoutingCandidate> candidates;  // in routing order

  const RoutingCandidate* find(AgentProvider wanted) const {
    const auto found = std::ranges::find(candidates, wanted, &RoutingCandidate::provider);
    return found == candidates.end() ? nullptr : &*found;
  }
};

}  // namespace vantrell
