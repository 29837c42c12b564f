// What a connector is told about the conversation that it serves and about what the user has set up
// beside the runtimes' programs (a local model server, the Tasklet webhook). Main queue.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "engine/core/refusal.h"
#include "engine/core/run_lifecycle.h"
#include "engine/core/selection.h"
#include "engine/core/settings.h"
#include "engine/providers/provider_services.h"

namespace vantrell {

class ProviderSetup {
 public:
  struct Dependencies {
    const Settings& settings;
    const WorkspaceTree& tree;
    const Selection& selection;
    ExecutionTable& executions;
    RunLifecycle& runs;
    ProviderServices& services;
  };
  explicit ProviderSetup(Dependencies dependencies) : core_(dependencies) {}

  ProviderServices& services() const { return core_.services; }
  const ProviderConnector& connector(AgentProvider provider) const {
    return core_.services.connector(provider);
  }
  /// For the selected conversation; without a path, in the selected workspace's folder, else in the
  /// user's home.
  ProviderConnectorContext connectorContext(
      AgentProvider provider, const std::optional<std::string>& workspacePath = {}) const;
  /// For any conversation, in the folder that it works in; nullopt when there is none.
  std::optional<ProviderConnectorContext> connectorContext(AgentProvider provider,
                                                           const ThreadExecutionKey& key) const;
  /// Puts in what the conversation, without a key the selected one, has chosen for the provider.
  void setChoices(ProviderConnectorContext& context, AgentProvider provider,
                  std::optional<ThreadExecutionKey> key) const;
  /// What to tell the user for a provider's words.
  std::string advice(const std::string& description, AgentProvider provider) const;

  LocalRuntimeStatus localRuntimeStatus() const { return core_.services.localRuntimeStatus(); }
  /// Asks the places where a model server may be; what is found comes later.
  void refreshLocalRuntime() { core_.services.refreshLocalRuntime(); }
  bool taskletConfigured() const { return core_.services.isTaskletConfigured(); }
  /// Stores the webhook, or forgets it where the text is empty. Conversations that Tasklet serves
  /// go on with the new one.
  void configureTaskletWebhookURL(const std::string& text, std::function<void(Result<>)> done);

 private:
  ProviderConnectorContext contextOf(AgentProvider provider, const ChatThread* thread) const;

  const Dependencies core_;
};

}  // namespace vantrell
