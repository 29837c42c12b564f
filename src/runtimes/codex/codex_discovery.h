// Asks Codex for its models and the allowance without opening a thread: a process of its own, two
// questions, the end. It holds itself alive until it has answered.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/dispatch.h"
#include "platform/process.h"
#include "runtimes/provider_options.h"
#include "runtimes/provider_usage.h"

namespace vantrell {

struct CodexDiscoveryResult {
  /// Codex's own choice alone when it did not say.
  std::vector<ProviderModelOption> models;
  std::optional<ProviderUsage> usage;
};

namespace CodexDiscovery {

struct Place {
  std::string executable;     // absolute
  std::string workspacePath;  // folder of the process
  Environment environment;    // complete; of the subscription
};

/// How long an answer is waited for; then what has come so far is the result.
inline constexpr std::chrono::seconds timeLimit{8};

/// Called on the main queue, where the completion arrives too, exactly once. Whatever goes wrong
/// leaves a part of the result as it is when nothing is known.
void run(Place place, MainQueue& main, BackgroundPool& pool,
         std::function<void(CodexDiscoveryResult)> completion);

}  // namespace CodexDiscovery

}  // namespace vantrell
