#include "engine/providers/system_provider_services.h"

#include <utility>

#include "platform/files/files.h"
#include "platform/secrets/secret_queue.h"
#include "runtimes/acp/acp_client.h"
#include "runtimes/catalog/locators.h"
#include "runtimes/catalog/runtime_locator.h"

namespace vantrell {

namespace {

/// The practice agent in the place of local models: like them it needs no subscription.
std::shared_ptr<AgentClient> makePracticeClient(MainQueue& main, BackgroundPool& pool,
                                                const ProviderConnectorContext& context) {
  if (!files::isExecutable(*context.practiceAgent)) return nullptr;
  ACPConfiguration configuration;
  configuration.provider = AgentProvider::local;
  configuration.executable = *context.practiceAgent;
  configuration.workspacePath = context.workspacePath;
  configuration.permissionMode = context.permissionMode;
  configuration.processArguments = {"acp"};
  configuration.processEnvironment = configuration.terminalEnvironment =
      GrokLocator::augmentedEnvironment();
  configuration.runtimeName = "The practice agent";
  return ACPClient::make(std::move(configuration), main, pool);
}

/// Local models, except where a conversation has the practice agent.
ProviderConnector withPractice(MainQueue& main, BackgroundPool& pool,
                               const ProviderConnector& local) {
  ProviderConnector connector = local;
  connector.isAvailable = [local](const auto& context) {
    return context.practiceAgent ? files::isExecutable(*context.practiceAgent)
                                 : local.isAvailable(context);
  };
  connector.makeClient = [&main, &pool, local](const auto& context) {
    return context.practiceAgent ? makePracticeClient(main, pool, context)
                                 : local.makeClient(context);
  };
  return connector;
}

}  // namespace

SystemProviderServices::SystemProviderServices(Dependencies given)
    : http_(given.main),
      detector_(LocalRuntimeDetector::make(given.defaults, http_)),
      webhook_(TaskletWebhook::make(given.secrets)),
      connectors_({.main = given.main,
                   .pool = given.pool,
                   .defaults = given.defaults,
                   .http = http_,
                   .webhook = webhook_,
                   .customExecutable = [&defaults = given.defaults](AgentProvider provider) {
                     return customExecutablePath(defaults, provider);
                   }}) {
  connectors_.replace(
      withPractice(given.main, given.pool, connectors_.connector(AgentProvider::local)));
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
  if (provider != AgentProvider::local) return true;
  return !detector_->status().isChecking();
}

void SystemProviderServices::prepare(AgentProvider provider, std::function<void()> done) {
  if (isKnown(provider)) return done();
  if (provider == AgentProvider::tasklet) return loadTasklet(std::move(done));
  waiting_.push_back(std::move(done));
  detector_->refresh();
}

}  // namespace vantrell
