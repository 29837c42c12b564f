#include "runtimes/catalog/provider_connectors.h"

#include "runtimes/acp/acp_client.h"
#include "runtimes/catalog/found_programs.h"
#include "runtimes/catalog/grok_arguments.h"
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
  if (!connection) return nullptr;
  auto configuration = LocalRuntimeService::harnessConfiguration(
      *connection, {.executable = program,
                    .workspacePath = context.workspacePath,
                    .selectedModel = context.selectedModel,
                    .permissionMode = context.permissionMode});
  if (!configuration || !*configuration) return nullptr;
  return ACPClient::make(**std::move(configuration), means.main, means.pool);
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

std::vector<ProviderEffortOption> effortOptions(std::initializer_list<const char*> ids) {
  std::vector<ProviderEffortOption> efforts{ProviderEffortOption::defaultOption()};
  for (const char* id : ids) efforts.push_back(ProviderEffortOption::named(id, ""));
  return efforts;
}

Options grokModels(const ConnectorMeans&, const Context&) {
  return grokModelsIn("");
}
Options codexModels(const ConnectorMeans&, const Context&) {
  return {ProviderModelOption::defaultOption(
      effortOptions({"minimal", "low", "medium", "high", "xhigh", "max", "ultra"}))};
}
Options kimiModels(const ConnectorMeans&, const Context&) {
  return {ProviderModelOption::defaultOption(effortOptions({}))};
}
Options glmModels(const ConnectorMeans& means, const Context&) {
  const std::string model = OpenCodeLocator::configuredModel(means.defaults);
  return {ProviderModelOption::defaultOption(effortOptions({})),
          {model, model, "Configured Z.AI Coding Plan model.", true, effortOptions({})}};
}
Options claudeModels(const ConnectorMeans&, const Context&) {
  const auto efforts = effortOptions({"low", "medium", "high", "xhigh", "max"});
  return {ProviderModelOption::defaultOption(efforts),
          {"sonnet", "Sonnet", "Balanced Claude model.", true, efforts},
          {"opus", "Opus", "Most capable Claude model.", false, efforts},
          {"haiku", "Haiku", "Fast Claude model.", false, efforts}};
}
Options localModels(const ConnectorMeans&, const Context& context) {
  Options options{ProviderModelOption::defaultOption(effortOptions({}))};
  if (const auto* connection = context.localRuntimeStatus.connection()) {
    options.insert(options.end(), connection->models.begin(), connection->models.end());
  }
  return options;
}
Options taskletModels(const ConnectorMeans&, const Context&) {
  return {{"default",
           "Workflow default",
           "Tasklet chooses the model configured by the inbound workflow.",
           true,
           {}}};
}

/// How a provider whose work a program does is used.
struct ProgramRow {
  AgentProvider provider;
  bool (*isReady)(const ConnectorMeans&, const Context&);
  Client (*make)(const ConnectorMeans&, const Context&, const std::string& program);
  Options (*models)(const ConnectorMeans&, const Context&);
};
constexpr ProgramRow programRows[] = {
    {AgentProvider::grok, always, makeGrok, grokModels},
    {AgentProvider::codex, always, makeCodex, codexModels},
    {AgentProvider::kimi, always, makeKimi, kimiModels},
    {AgentProvider::glm, hasPlanModel, makeGLM, glmModels},
    {AgentProvider::claude, always, makeClaude, claudeModels},
    {AgentProvider::local, hasLocalServer, makeLocal, localModels},
};

ProviderConnector programConnector(const ProgramRow& row, const Means& means,
                                   const std::shared_ptr<FoundPrograms>& found) {
  return {
      .provider = row.provider,
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
      .modelOptions = [row, means](const Context& context) { return row.models(*means, context); },
      .advice = {},
      .isSessionLost = row.provider == AgentProvider::claude ? claude::isSessionLost : nullptr,
      .billingMode = {}};
}

ProviderConnector taskletConnector(const Means& means) {
  return {
      .provider = AgentProvider::tasklet,
      .setupHint = std::string(ProviderRegistry::setupHint(AgentProvider::tasklet)),
      .isAvailable = [](const Context& context) { return context.taskletConfigured; },
      .makeClient = [means](const Context& context) -> Client {
        const auto url = context.taskletConfigured ? means->webhook->url() : std::nullopt;
        if (!url) return nullptr;
        return TaskletClient::make(*url, context.workspaceName, means->main, means->http);
      },
      .modelOptions = [means](const Context& context) { return taskletModels(*means, context); },
      .advice = {},
      .billingMode = {}};
}

}  // namespace

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
