#include "engine/providers/model_catalog.h"

#include "engine/providers/model_discovery.h"
#include "platform/queues/weakly.h"

namespace vantrell {

ModelCatalog::ModelCatalog(MainQueue& main, Changes& changes, ProviderSetup& setup,
                           UsageTracker& usage, const InstalledRuntimes& runtimes,
                           ReportedModels& earlier)
    : main_(main),
      setup_(setup),
      usage_(usage),
      changes_(changes),
      runtimes_(runtimes),
      earlier_(earlier) {}

ModelCatalog::ModelOptions ModelCatalog::options(AgentProvider provider) const {
  const auto known = options_.find(provider);
  if (known != options_.end()) return known->second;
  if (const auto* reported = earlier_.find(provider)) return *reported;
  return setup_.connector(provider).modelOptions(setup_.connectorContext(provider));
}

void ModelCatalog::reported(AgentProvider provider, ModelOptions options) {
  earlier_.keep(provider, options);
  options_[provider] = std::move(options);
  changes_.mark(topics::modelOptions);
}

void ModelCatalog::forget(AgentProvider provider) {
  earlier_.forget(provider);
  // A start that asks no program has nothing here, and asks none now either.
  if (options_.erase(provider) > 0) ask(provider);
  changes_.mark(topics::modelOptions);
}

void ModelCatalog::localRuntimeChanged() {
  const auto status = setup_.localRuntimeStatus();
  if (status.isChecking()) return changes_.mark(topics::runtimes);
  ModelOptions options{ProviderModelOption::defaultOption({ProviderEffortOption::defaultOption()})};
  if (const auto* connection = status.connection()) {
    options.insert(options.end(), connection->models.begin(), connection->models.end());
  }
  reported(AgentProvider::local, std::move(options));
}

void ModelCatalog::refreshSessionControls() {
  askPrograms();
  setup_.refreshLocalRuntime();
}

void ModelCatalog::askPrograms() {
  for (const auto provider : allAgentProviders) {
    if (!options_.contains(provider)) options_[provider] = options(provider);
  }
  ask(AgentProvider::grok);
  ask(AgentProvider::codex);
}

bool ModelCatalog::ask(AgentProvider provider) {
  const bool isAsked = discoverModels(
      provider, main_, runtimes_.programs(), setup_.connectorContext(provider).workspacePath,
      weakly(this, [provider](ModelCatalog& self, DiscoveredModels found) {
        --self.asked_;
        if (found.usage) self.usage_.discovered(*found.usage);
        // The usual choice alone: the program did not tell, and what is known holds.
        if (found.models.size() > 1 || !self.earlier_.find(provider)) {
          self.reported(provider, std::move(found.models));
        }
      }));
  if (isAsked) ++asked_;
  return isAsked;
}

}  // namespace vantrell
