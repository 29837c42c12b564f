// Asks a provider's program for the models that it really has. Only Grok and Codex can tell without
// a task; Codex tells its allowance along with them. Main queue.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "engine/providers/installed_runtimes.h"
#include "platform/queues/dispatch.h"
#include "runtimes/wire/provider_options.h"
#include "runtimes/wire/provider_usage.h"

namespace vantrell {

struct DiscoveredModels {
  /// The provider's own choice alone where the program did not tell.
  std::vector<ProviderModelOption> models;
  std::optional<ProviderUsage> usage;
};

/// Whether the provider's program can tell its models without a task.
bool tellsModels(AgentProvider provider);

/// False, and no completion, where the provider has nothing to ask or its program is not found. The
/// completion comes once, on the main queue, in 15 seconds at the latest.
bool discoverModels(AgentProvider provider, MainQueue& main, const RuntimePrograms& programs,
                    const std::string& workspacePath,
                    std::function<void(DiscoveredModels)> completion);

}  // namespace vantrell
