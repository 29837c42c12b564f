#include "runtimes/provider_connectors.h"

#include "platform/user_defaults.h"
#include "runtimes/acp/acp_client.h"
#include "runtimes/grok_arguments.h"
#include "runtimes/locators.h"
#include "runtimes/provider_registry.h"
#include "runtimes/runtime_locator.h"

namespace vantrell {

namespace {

/// Fills in what the provider's dialect needs beside the common part; false when the context does
/// not allow a client.
bool configure(ACPConfiguration& configuration, const ProviderConnectorContext& context,
               const UserDefaults& defaults) {
  switch (configuration.provider) {
    case AgentProvider::grok:
      configuration.model = context.selectedModel;
      configuration.effort = context.selectedEffort;
      configuration.processArguments =
          agentArguments(context.permissionMode, context.selectedModel, context.selectedEffort);
      return true;
    case AgentProvider::kimi:
      configuration.model = context.selectedModel;
      configuration.processArguments = {"acp"};
      return true;
    case AgentProvider::glm:
      configuration.model =
          context.selectedModel.value_or(OpenCodeLocator::configuredModel(defaults));
      configuration.effort = context.selectedEffort;
      configuration.processArguments = {"acp", "--cwd", context.workspacePath};
      return OpenCodeLocator::isPlanModel(*configuration.model);
    default: return false;
  }
}

bool speaksACP(AgentProvider provider) {
  return provider == AgentProvider::grok || provider == AgentProvider::kimi ||
         provider == AgentProvider::glm;
}

}  // namespace

ProviderConnectorRegistry::ProviderConnectorRegistry(
    MainQueue& main, BackgroundPool& pool, const UserDefaults& defaults,
    std::function<std::optional<std::string>(AgentProvider)> customExecutable) {
  for (const auto provider : allAgentProviders) {
    const auto executable = [provider, customExecutable]() -> std::optional<std::string> {
      const auto custom = customExecutable(provider);
      return findRuntime(provider, custom);
    };
    const auto makeClient =
        [&main, &pool, &defaults, provider,
         executable](const ProviderConnectorContext& context) -> std::shared_ptr<AgentClient> {
      ACPConfiguration configuration;
      configuration.provider = provider;
      configuration.workspacePath = context.workspacePath;
      configuration.permissionMode = context.permissionMode;
      configuration.runtimeName = shortLabel(provider);
      const auto program = executable();
      if (!program || !configure(configuration, context, defaults)) return nullptr;
      configuration.executable = *program;
      configuration.processEnvironment = runtimeEnvironment(provider);
      return ACPClient::make(std::move(configuration), main, pool);
    };
    replace({provider,
             std::string(ProviderRegistry::setupHint(provider)),
             [&defaults, provider, executable](const ProviderConnectorContext&) {
               return speaksACP(provider) && executable().has_value() &&
                      (provider != AgentProvider::glm ||
                       OpenCodeLocator::isPlanModel(OpenCodeLocator::configuredModel(defaults)));
             },
             makeClient,
             {}});
  }
}

const ProviderConnector& ProviderConnectorRegistry::connector(AgentProvider provider) const {
  return connectors_.at(provider);
}

void ProviderConnectorRegistry::replace(ProviderConnector connector) {
  const auto provider = connector.provider;
  connectors_.insert_or_assign(provider, std::move(connector));
}

}  // namespace vantrell
