// Which models and efforts each provider offers: what its runtime has reported, in this process or
// an earlier one, else what its connector says. Main queue; runtimes are asked in the background.
#pragma once

#include <map>
#include <memory>
#include <vector>

#include "engine/core/changes.h"
#include "engine/providers/installed_runtimes.h"
#include "engine/providers/provider_setup.h"
#include "engine/providers/reported_models.h"
#include "engine/providers/usage_tracker.h"
#include "runtimes/wire/provider_options.h"

namespace vantrell {

class ModelCatalog : public std::enable_shared_from_this<ModelCatalog> {
 public:
  using ModelOptions = std::vector<ProviderModelOption>;

  ModelCatalog(MainQueue& main, Changes& changes, ProviderSetup& setup, UsageTracker& usage,
               const InstalledRuntimes& runtimes, ReportedModels& earlier);

  /// What is known by now; without those that have not been asked.
  const std::map<AgentProvider, ModelOptions>& providerModelOptions() const { return options_; }
  /// That, or what was reported to an earlier process, or what the connector says for the moment.
  ModelOptions options(AgentProvider provider) const;
  /// A client, or a question to the program, has told the provider's models.
  void reported(AgentProvider provider, ModelOptions options);
  /// What was reported holds no more: another program or model is set.
  void forget(AgentProvider provider);
  /// A detection of the local runtime has begun or ended.
  void localRuntimeChanged();

  /// Asks every runtime that can tell for its models, and Codex for its allowance.
  void refreshSessionControls();
  /// The same without the local runtime.
  void askPrograms();
  /// Asks this one's program. False where there is nothing to ask, or no program.
  bool ask(AgentProvider provider);
  /// Whether the answer of some program is still awaited.
  bool isAsking() const { return asked_ > 0; }

 private:
  MainQueue& main_;
  ProviderSetup& setup_;
  UsageTracker& usage_;
  Changes& changes_;
  const InstalledRuntimes& runtimes_;
  ReportedModels& earlier_;
  std::map<AgentProvider, ModelOptions> options_;
  int asked_ = 0;
};

}  // namespace vantrell
