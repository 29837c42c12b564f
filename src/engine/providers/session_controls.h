// What a conversation has chosen of a provider's models and efforts: the controls that show it, and
// the choice. Main queue.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "engine/core/refusal.h"
#include "engine/providers/model_catalog.h"

namespace vantrell {

class SessionControls {
 public:
  using ModelOptions = std::vector<ProviderModelOption>;
  using EffortOptions = std::vector<ProviderEffortOption>;

  struct Dependencies {
    MainQueue& main;
    const Settings& settings;
    WorkspaceTree& tree;
    ExecutionTable& executions;
    RunLifecycle& runs;
    ModelCatalog& catalog;
  };
  explicit SessionControls(Dependencies dependencies) : core_(dependencies) {}

  // Without a key: what holds for a conversation that is still to be made.
  using Key = std::optional<ThreadExecutionKey>;

  /// The provider that the controls are about: on an automatic route the one at work, else the
  /// last, else the route's first choice; on a fixed route its provider.
  AgentProvider sessionConfigurationProvider(const Key& key) const;
  ModelOptions sessionModelOptions(const Key& key) const;
  EffortOptions sessionEffortOptions(const Key& key) const;
  /// Of what is chosen, "default" where nothing is; the ID itself where that is not offered.
  std::string sessionModelLabel(const Key& key) const;
  std::string sessionEffortLabel(const Key& key) const;

  /// Only what the provider offers, and not while a turn runs or a question is open. The next turn
  /// starts a new client, in the stored session. An effort that the model does not have is
  /// forgotten.
  Result<> chooseModel(AgentProvider provider, const ThreadExecutionKey& key,
                       const std::string& id);
  Result<> chooseEffort(AgentProvider provider, const ThreadExecutionKey& key,
                        const std::string& id);
  /// The same for what the user names, where the provider's program has not been asked what it
  /// offers; nullopt leaves the choice to the runtime.
  Result<> chooseUnchecked(AgentProvider provider, const ThreadExecutionKey& key,
                           std::optional<std::string> modelID, std::optional<std::string> effort);
  /// What a front end chooses for the turns of the conversation while it drives them; nothing is
  /// stored.
  void chooseForTurns(const ThreadExecutionKey& key, RunChoices choices) {
    core_.executions.choose(key, std::move(choices));
  }
  /// Asks the conversation's own Codex for its allowance, then every runtime that can tell for its
  /// models.
  void refreshSessionUsage(const Key& key);

 private:
  const ChatThread* threadOf(const Key& key) const;
  Result<> mayChange(const ThreadExecutionKey& key) const;
  void choose(const ThreadExecutionKey& key, const std::function<void(ChatThread&)>& change);

  const Dependencies core_;
};

}  // namespace vantrell
