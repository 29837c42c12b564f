#include "runtimes/provider_connectors.h"

#include "platform/process.h"
#include "platform/text.h"
#include "runtimes/acp/acp_client.h"
#include "runtimes/grok_arguments.h"
#include "runtimes/provider_registry.h"
#include "runtimes/runtime_locator.h"

namespace vantrell {

namespace {

constexpr std::string_view defaultGLMModel = "zai-coding-plan/glm-4.7";
/// Only models of the coding plan are covered by its subscription.
constexpr std::string_view guardedGLMPrefix = "zai-coding-plan/glm-";

/// Fills in what the provider's dialect needs beside the common part; false when the context does
/// not allow a client.
bool configure(ACPConfiguration& configuration, const ProviderConnectorContext& context) {
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
      configuration.model = context.selectedModel.value_or(std::string(defaultGLMModel));
      configuration.effort = context.selectedEffort;
      configuration.processArguments = {"acp", "--cwd", context.workspacePath};
      return text::lowercased(*configuration.model).starts_with(guardedGLMPrefix);
    default: return false;
  }
}

bool speaksACP(AgentProvider provider) {
  return provider == AgentProvider::grok || provider == AgentProvider::kimi ||
         provider == AgentProvider::glm;
}

}  // namespace

ProviderConnectorRegistry::ProviderConnectorRegistry(
    MainQueue& main, BackgroundPool& pool,
    std::function<std::optional<std::string>(AgentProvider)> customExecutable) {
  for (const auto provider : allAgentProviders) {
    const auto executable = [provider, customExecutable]() -> std::optional<std::string> {
      const auto custom = customExecutable(provider);
      return findExecutable(provider, custom, currentEnvironment());
    };
    const auto makeClient =
        [&main, &pool, provider,
         executable](const ProviderConnectorContext& context) -> std::shared_ptr<AgentClient> {
      ACPConfiguration configuration;
      configuration.provider = provider;
      configuration.workspacePath = context.workspacePath;
      configuration.permissionMode = context.permissionMode;
      configuration.runtimeName = shortLabel(provider);
      const auto program = executable();
      if (!program || !configure(configuration, context)) return nullptr;
      configuration.executable = *program;
      configuration.processEnvironment = runtimeEnvironment(provider, currentEnvironment());
      return ACPClient::make(std::move(configuration), main, pool);
    };
    replace({provider,
             std::string(ProviderRegistry::setupHint(provider)),
             [provider, executable](const ProviderConnectorContext&) {
               return speaksACP(provider) && executable().has_value();
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
