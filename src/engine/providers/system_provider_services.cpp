#include "engine/providers/system_provider_services.h"

#include <fmt/format.h>
#include <utility>

#include "platform/files/files.h"
#include "platform/secrets/secret_queue.h"
#include "runtimes/acp/acp_client.h"
#include "runtimes/catalog/locators.h"
#include "runtimes/catalog/runtime_locator.h"

namespace vantrell {

namespace {

/// The practice agent in the place of local models: like them it needs no subscription.
ProviderConnector practiceConnector(MainQueue& main, BackgroundPool& pool, std::string executable) {
  ProviderConnector connector;
  connector.provider = AgentProvider::local;
  connector.setupHint =
      fmt::format("The practice agent is missing: {}. Build it with ./run.", executable);
  connector.isAvailable = [executable](const auto&) { return files::isExecutable(executable); };
  connector.makeClient =
      [&main, &pool,
       executable](const ProviderConnectorContext& context) -> std::shared_ptr<AgentClient> {
    if (!files::isExecutable(executable)) return nullptr;
    ACPConfiguration configuration;
    configuration.provider = AgentProvider::local;
    configuration.executable = executable;
    configuration.workspacePath = context.workspacePath;
    configuration.permissionMode = context.permissionMode;
    configuration.processArguments = {"acp"};
    configuration.processEnvironment = configuration.terminalEnvironment =
        GrokLocator::augmentedEnvironment();
    configuration.runtimeName = "The practice agent";
    return ACPClient::make(std::move(configuration), main, pool);
  };
  connector.modelOptions = [](const auto&) {
    return std::vector{ProviderModelOption::defaultOption({ProviderEffortOption::defaultOption()})};
  };
  // What helps with local models is no help with this one.
  connector.advice = [](const std::string& description) { return description; };
  return connector;
}

}  // namespace

ExecutableChoice executableChoice(ExecutableChoice named, const UserDefaults& defaults) {
  return [named = std::move(named), &defaults](AgentProvider provider) {
    auto path = named ? named(provider) : std::nullopt;
    return path ? path : customExecutablePath(defaults, provider);
  };
}

SystemProviderServices::SystemProviderServices(Dependencies given)
    : practices_(given.practiceAgent.has_value()),
      http_(given.main),
      detector_(LocalRuntimeDetector::make(given.defaults, http_)),
      webhook_(TaskletWebhook::make(given.secrets)),
      connectors_({.main = given.main,
                   .pool = given.pool,
                   .defaults = given.defaults,
                   .http = http_,
                   .webhook = webhook_,
                   .customExecutable = given.customExecutable}) {
  if (practices_) {
    connectors_.replace(practiceConnector(given.main, given.pool, *given.practiceAgent));
  }
  detector_->onChange = [this] {
    if (onLocalRuntimeChanged) onLocalRuntimeChanged();
    if (detector_->status().isChecking()) return;
    for (const auto& ready : std::exchange(waiting_, {})) ready();
  };
}

const ProviderConnector& SystemProviderServices::connector(AgentProvider provider) const {
  return connectors_.connector(provider);
}

void SystemProviderServices::loadTasklet(std::function<void()> done) {
  webhook_->load([this, done = std::move(done)] {
    webhookIsKnown_ = true;
    done();
  });
}

void SystemProviderServices::saveTaskletWebhook(const std::string& text,
                                                std::function<void(bool isSaved)> reply) {
  webhook_->save(text, std::move(reply));
}

bool SystemProviderServices::isKnown(AgentProvider provider) const {
  if (provider == AgentProvider::tasklet) return webhookIsKnown_ || webhook_->isConfigured();
  if (provider != AgentProvider::local || practices_) return true;
  return !detector_->status().isChecking();
}

void SystemProviderServices::prepare(AgentProvider provider, std::function<void()> done) {
  if (isKnown(provider)) return done();
  if (provider == AgentProvider::tasklet) return loadTasklet(std::move(done));
  waiting_.push_back(std::move(done));
  detector_->refresh();
}

}  // namespace vantrell
