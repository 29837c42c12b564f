// Talks with Codex without opening a thread: a process of its own asks for the models and the
// allowance, or spends a reset credit, and ends. It holds itself alive until it has answered.
#pragma once

#include <chrono>
#include <expected>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/process/process.h"
#include "platform/queues/dispatch.h"
#include "runtimes/wire/agent_error.h"
#include "runtimes/wire/provider_options.h"
#include "runtimes/wire/provider_usage.h"

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

/// A reset may take Codex longer than a question.
inline constexpr std::chrono::seconds resetLimit{30};

/// Spends a manual reset credit when no task is open. As run(), with the runtime's word for
/// what came of it, as of CodexAppServerClient::consumeUsageReset().
void consumeUsageReset(Place place, MainQueue& main, BackgroundPool& pool,
                       std::function<void(std::expected<std::string, AgentError>)> completion);

}  // namespace CodexDiscovery

}  // namespace vantrell
