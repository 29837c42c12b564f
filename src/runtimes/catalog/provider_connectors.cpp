#include "runtimes/catalog/provider_connectors.h"

#include "runtimes/acp/acp_client.h"
#include "runtimes/acp/grok_arguments.h"
#include "runtimes/catalog/found_programs.h"
#include "runtimes/catalog/locators.h"
#include "runtimes/catalog/provider_registry.h"
#include "runtimes/catalog/runtime_information.h"
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
using Means = std::shared_ptr<const ConnectorMeans>;

std::optional<std::string> executable(const ConnectorMeans& means, AgentProvider provider) {
  return findRuntime(provider, means.customExecutable(provider));
}

/// The runtime's own choice goes by that id in every list; no runtime knows it as a model or
/// effort.
Context withoutDefaultIds(Context context) {
  if (context.selectedModel == "default") context.selectedModel.reset();
  if (context.selectedEffort == "default") context.selectedEffort.reset();
  return context;
}

// ---- clients: each is given the program that was found -----------------------------------------

ACPConfiguration acpConfiguration(AgentProvider provider, const Context& context,
                                  const std::string& program) {
  ACPConfiguration configuration;
  configuration.provider = provider;
  configuration.executable = program;
  configuration.workspacePath = context.workspacePath;
  configuration.permissionMode = context.permissionMode;
  configuration.runtimeName = shortLabel(provider);
  configuration.model = context.selectedModel;
  configuration.processEnvironment = runtimeEnvironment(provider);
  configuration.terminalEnvironment = GrokLocator::augmentedEnvironment();
  return configuration;
}

Client makeGrok(const ConnectorMeans& means, const Context& context, const std::string& program) {
  auto configuration = acpConfiguration(AgentProvider::grok, context, program);
  configuration.effort = context.selectedEffort;
  configuration.processArguments =
      agentArguments(context.permissionMode, context.selectedModel, context.selectedEffort);
  return ACPClient::make(std::move(configuration), means.main, means.pool);
}

Client makeCodex(const ConnectorMeans& means, const Context& context, const std::string& program) {
  return CodexAppServerClient::make({.executable = program,
                                     .workspacePath = context.workspacePath,
                                     .model = context.selectedModel,
                                     .effort = context.selectedEffort,
                                     .permissionMode = context.permissionMode,
                                     .processEnvironment = CodexLocator::subscriptionEnvironment()},
                                    means.main, means.pool);
}

Client makeKimi(const ConnectorMeans& means, const Context& context, const std::string& program) {
  auto configuration = acpConfiguration(AgentProvider::kimi, context, program);
  configuration.processArguments = {"acp"};
  return ACPClient::make(std::move(configuration), means.main, means.pool);
}

Client makeGLM(const ConnectorMeans& means, const Context& context, const std::string& program) {
  auto configuration = acpConfiguration(AgentProvider::glm, context, program);
  configuration.effort = context.selectedEffort;
  if (!configuration.model) configuration.model = OpenCodeLocator::configuredModel(means.defaults);
  // Another model of OpenCode may be billed per use.
  if (!OpenCodeLocator::isPlanModel(*configuration.model)) return nullptr;
  configuration.processArguments = {"acp", "--cwd", context.workspacePath};
  return ACPClient::make(std::move(configuration), means.main, means.pool);
}

Client makeClaude(const ConnectorMeans& means, const Context& context, const std::string& program) {
  return ClaudeCodeClient::make(
      {.executable = program,
       .workspacePath = context.workspacePath,
       .model = context.selectedModel.value_or(ClaudeLocator::configuredModel(means.defaults)),
       .effort = context.selectedEffort,
       .permissionMode = context.permissionMode,
       .processEnvironment = ClaudeLocator::subscriptionEnvironment()},
      means.main, means.pool);
}

Client makeLocal(const ConnectorMeans& means, const Context& context, const std::string& program) {
  const LocalRuntimeConnection* connection = context.localRuntimeStatus.connection();
  auto configuration =
      connection ? localHarness(*connection, context, program) : std::optional<ACPConfiguration>();
  return configuration ? ACPClient::make(std::move(*configuration), means.main, means.pool)
                       : nullptr;
}

// ---- availability beyond a program that is found ------------------------------------------------

bool always(const ConnectorMeans&, const Context&) {
  return true;
}
bool hasPlanModel(const ConnectorMeans& means, const Context&) {
  return OpenCodeLocator::isPlanModel(OpenCodeLocator::configuredModel(means.defaults));
}
bool hasLocalServer(const ConnectorMeans&, const Context& context) {
  return context.localRuntimeStatus.connection() != nullptr;
}

// ---- models -------------------------------------------------------------------------------------

/// What the table says, and what the local server has.
Options modelOptions(AgentProvider provider, const ConnectorMeans& means, const Context& context) {
  const ProviderModelRules& rules = providerFacts(provider).models;
  const auto efforts = ProviderEffortOption::list(rules.efforts);
  Options options;
  if (rules.offersDefault) options.push_back(ProviderModelOption::defaultOption(efforts));
  for (const auto& [id, label, detail, isDefault] : rules.models) {
    options.push_back(
        {std::string(id), std::string(label), std::string(detail), isDefault, efforts});
  }
  if (rules.configured && !rules.configured->detail.empty()) {
    const std::string model = configuredModel(means.defaults, provider);
    options.push_back({model, model, std::string(rules.configured->detail), true, efforts});
  }
  const auto* server = context.localRuntimeStatus.connection();
  if (provider == AgentProvider::local && server) {
    options.insert(options.end(), server->models.begin(), server->models.end());
  }
  return options;
}

/// How a provider whose work a program does is used.
struct ProgramRow {
  AgentProvider provider;
  bool (*isReady)(const ConnectorMeans&, const Context&);
  Client (*make)(const ConnectorMeans&, const Context&, const std::string& program);
};
constexpr ProgramRow programRows[] = {
    {AgentProvider::grok, always, makeGrok},     {AgentProvider::codex, always, makeCodex},
    {AgentProvider::kimi, always, makeKimi},     {AgentProvider::glm, hasPlanModel, makeGLM},
    {AgentProvider::claude, always, makeClaude}, {AgentProvider::local, hasLocalServer, makeLocal},
};

ProviderConnector programConnector(const ProgramRow& row, const Means& means,
                                   const std::shared_ptr<FoundPrograms>& found) {
  return {.provider = row.provider,
          .setupHint = std::string(ProviderRegistry::setupHint(row.provider)),
          .isAvailable =
              [row, means, found](const Context& context) {
                return row.isReady(*means, context) &&
                       found->has(row.provider, means->customExecutable(row.provider));
              },
          .makeClient =
              [row, means](const Context& context) {
                const auto program = executable(*means, row.provider);
                return program ? row.make(*means, withoutDefaultIds(context), *program) : Client();
              },
          .modelOptions =
              [row, means](const Context& context) {
                return modelOptions(row.provider, *means, context);
              },
          .advice = {},
          .isSessionLost = row.provider == AgentProvider::claude ? claude::isSessionLost : nullptr,
          .billingMode = {}};
}

ProviderConnector taskletConnector(const Means& means) {
  return {.provider = AgentProvider::tasklet,
          .setupHint = std::string(ProviderRegistry::setupHint(AgentProvider::tasklet)),
          .isAvailable = [](const Context& context) { return context.taskletConfigured; },
          .makeClient = [means](const Context& context) -> Client {
            const auto url = context.taskletConfigured ? means->webhook->url() : std::nullopt;
            if (!url) return nullptr;
            return TaskletClient::make(*url, context.workspaceName, means->main, means->http);
          },
          .modelOptions =
              [means](const Context& context) {
                return modelOptions(AgentProvider::tasklet, *means, context);
              },
          .advice = {},
          .billingMode = {}};
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

ProviderConnectorRegistry::ProviderConnectorRegistry(ConnectorMeans given) {
  const auto means = std::make_shared<const ConnectorMeans>(std::move(given));
  const auto found = std::make_shared<FoundPrograms>(means->main);
  for (const auto& row : programRows) replace(programConnector(row, means, found));
  replace(taskletConnector(means));
}

const ProviderConnector& ProviderConnectorRegistry::connector(AgentProvider provider) const {
  return connectors_.at(provider);
}

void ProviderConnectorRegistry::replace(ProviderConnector connector) {
  const auto provider = connector.provider;
  connectors_.insert_or_assign(provider, std::move(connector));
}

}  // namespace vantrell
