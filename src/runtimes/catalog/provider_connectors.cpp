#include "runtimes/catalog/provider_connectors.h"

#include "runtimes/acp/acp_client.h"
#include "runtimes/acp/grok_arguments.h"
#include "runtimes/catalog/locators.h"
#include "runtimes/catalog/provider_registry.h"
#include "runtimes/catalog/runtime_locator.h"
#include "runtimes/claude/claude_code_client.h"
#include "runtimes/claude/claude_messages.h"
#include "runtimes/codex/codex_app_server_client.h"
#include "runtimes/local/local_runtime_service.h"
#include "runtimes/tasklet/tasklet_client.h"
#include "runtimes/tasklet/tasklet_webhook.h"

namespace vantrell {

namespace {

using Client = std::shared_ptr<AgentClient>;
using Context = ProviderConnectorContext;
using Options = std::vector<ProviderModelOption>;

ACPConfiguration acpConfiguration(AgentProvider provider, const Context& context,
                                  const std::string& program) {
  ACPConfiguration configuration;
  configuration.provider = provider;
  configuration.executable = program;
  configuration.workspacePath = context.workspacePath;
  configuration.permissionMode = context.permissionMode;
  configuration.runtimeName = shortLabel(provider);
  configuration.model = context.selectedModel;
  if (provider != AgentProvider::kimi) configuration.effort = context.selectedEffort;
  configuration.processEnvironment = runtimeEnvironment(provider);
  configuration.terminalEnvironment = GrokLocator::augmentedEnvironment();
  return configuration;
}

/// What the client of an ACP provider is made of; absent when there can be none.
std::optional<ACPConfiguration> acpConfiguration(AgentProvider provider,
                                                 const ConnectorDependencies& uses,
                                                 const Context& context,
                                                 const std::string& program) {
  if (provider == AgentProvider::local) {
    const LocalRuntimeConnection* connection = context.localRuntimeStatus.connection();
    return connection ? localHarness(*connection, context, program)
                      : std::optional<ACPConfiguration>();
  }
  auto configuration = acpConfiguration(provider, context, program);
  if (provider == AgentProvider::grok) {
    configuration.processArguments =
        agentArguments(context.permissionMode, context.selectedModel, context.selectedEffort);
    return configuration;
  }
  configuration.processArguments = {"acp"};
  if (provider == AgentProvider::glm) {
    if (!configuration.model) configuration.model = configuredModel(uses.defaults, provider);
    // Another model of OpenCode may be billed per use.
    if (!mayUseModel(provider, *configuration.model)) return std::nullopt;
    configuration.processArguments.insert(configuration.processArguments.end(),
                                          {"--cwd", context.workspacePath});
  }
  return configuration;
}

Client makeClient(AgentProvider provider, const ConnectorDependencies& uses, Context context) {
  if (provider == AgentProvider::tasklet) {
    const auto url = context.taskletConfigured ? uses.webhook->url() : std::nullopt;
    if (!url) return nullptr;
    return TaskletClient::make(*url, context.workspaceName, uses.main, uses.http);
  }
  const auto program = findRuntime(provider, uses.customExecutable(provider));
  if (!program) return nullptr;
  // The runtime's own choice goes by that id in every list; no runtime knows it as a model or
  // effort.
  if (context.selectedModel == "default") context.selectedModel.reset();
  if (context.selectedEffort == "default") context.selectedEffort.reset();

  if (provider == AgentProvider::codex || provider == AgentProvider::claude) {
    AgentConfiguration configuration{.executable = *program,
                                     .workspacePath = context.workspacePath,
                                     .model = context.selectedModel,
                                     .effort = context.selectedEffort,
                                     .permissionMode = context.permissionMode,
                                     .processEnvironment = runtimeEnvironment(provider)};
    if (provider == AgentProvider::codex) {
      return CodexAppServerClient::make(std::move(configuration), uses.main, uses.pool);
    }
    if (!configuration.model) configuration.model = configuredModel(uses.defaults, provider);
    return ClaudeCodeClient::make(std::move(configuration), uses.main, uses.pool);
  }
  auto configuration = acpConfiguration(provider, uses, context, *program);
  return configuration ? ACPClient::make(std::move(*configuration), uses.main, uses.pool) : nullptr;
}

bool isAvailable(AgentProvider provider, const ConnectorDependencies& uses,
                 const Context& context) {
  if (provider == AgentProvider::tasklet) return context.taskletConfigured;
  if (provider == AgentProvider::local && !context.localRuntimeStatus.connection()) return false;
  if (provider == AgentProvider::glm &&
      !mayUseModel(provider, configuredModel(uses.defaults, provider))) {
    return false;
  }
  return findRuntime(provider, uses.customExecutable(provider)).has_value();
}

/// What the table says, and what the local server has.
Options modelOptions(AgentProvider provider, const ConnectorDependencies& uses,
                     const Context& context) {
  const ProviderModelRules& rules = providerFacts(provider).models;
  const auto efforts = ProviderEffortOption::list(rules.efforts);
  Options options;
  if (rules.offersDefault) options.push_back(ProviderModelOption::defaultOption(efforts));
  for (const auto& [id, label, detail, isDefault] : rules.models) {
    options.push_back(
        {std::string(id), std::string(label), std::string(detail), isDefault, efforts});
  }
  if (rules.configured && !rules.configured->detail.empty()) {
    const std::string model = configuredModel(uses.defaults, provider);
    options.push_back({model, model, std::string(rules.configured->detail), true, efforts});
  }
  const auto* server = context.localRuntimeStatus.connection();
  if (provider == AgentProvider::local && server) {
    options.insert(options.end(), server->models.begin(), server->models.end());
  }
  return options;
}

}  // namespace

std::optional<ACPConfiguration> localHarness(
    const LocalRuntimeConnection& connection, const ProviderConnectorContext& context,
    const std::string& program, const std::optional<std::string>& applicationSupportRoot) {
  const auto model = LocalRuntimeService::chosenModel(connection, context.selectedModel);
  if (!model) return std::nullopt;
  auto environment = LocalRuntimeService::prepareGrokEnvironment(
      GrokLocator::augmentedEnvironment(), connection, *model, applicationSupportRoot);
  if (!environment) return std::nullopt;
  auto configuration = acpConfiguration(AgentProvider::local, context, program);
  configuration.model.reset();  // the profile names it
  configuration.processEnvironment = std::move(*environment);
  configuration.processArguments = agentArguments(
      context.permissionMode, std::string(LocalRuntimeService::harnessModel), std::nullopt);
  configuration.processArguments.insert(configuration.processArguments.begin(),
                                        "--disable-web-search");
  return configuration;
}

bool ProviderConnector::isMetered() const {
  return billingMode.value_or(ProviderRegistry::descriptor(provider).billingMode) ==
         ProviderBillingMode::meteredAPI;
}

ProviderConnectorRegistry::ProviderConnectorRegistry(ConnectorDependencies dependencies) {
  const auto uses = std::make_shared<const ConnectorDependencies>(std::move(dependencies));
  for (const auto provider : allAgentProviders) {
    replace(
        {.provider = provider,
         .setupHint = std::string(ProviderRegistry::setupHint(provider)),
         .isAvailable =
             [=](const Context& context) { return isAvailable(provider, *uses, context); },
         .makeClient = [=](const Context& context) { return makeClient(provider, *uses, context); },
         .modelOptions =
             [=](const Context& context) { return modelOptions(provider, *uses, context); },
         .advice = {},
         .isSessionLost = provider == AgentProvider::claude ? claude::isSessionLost : nullptr});
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
