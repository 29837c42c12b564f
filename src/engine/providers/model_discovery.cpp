#include "engine/providers/model_discovery.h"

#include "runtimes/catalog/locators.h"
#include "runtimes/catalog/runtime_locator.h"
#include "runtimes/codex/codex_discovery.h"

namespace vantrell {

bool tellsModels(AgentProvider provider) {
  return providerFacts(provider).models.canBeAsked;
}

bool discoverModels(AgentProvider provider, MainQueue& main, const RuntimePrograms& programs,
                    const std::string& workspacePath,
                    std::function<void(DiscoveredModels)> completion) {
  if (!tellsModels(provider) || !programs.runner || !programs.pool) return false;
  const auto program = findRuntime(provider, programs.customExecutable(provider));
  if (!program) return false;
  if (provider == AgentProvider::grok) {
    GrokLocator::availableModels(*programs.runner, *program,
                                 [completion = std::move(completion)](auto models) {
                                   completion({std::move(models), std::nullopt});
                                 });
    return true;
  }
  CodexDiscovery::run({.executable = *program,
                       .workspacePath = workspacePath,
                       .environment = CodexLocator::subscriptionEnvironment()},
                      main, *programs.pool,
                      [completion = std::move(completion)](CodexDiscoveryResult result) {
                        completion({std::move(result.models), std::move(result.usage)});
                      });
  return true;
}

}  // namespace vantrell
