// What the user has set up beside the runtimes' programs (a local model server, the Tasklet
// webhook), and what a connector is told about it and about the conversation that it serves. Main
// queue.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "engine/core/engine_core.h"

namespace vantrell {

class ProviderSetup {
 public:
  explicit ProviderSetup(EngineCore& core);

  const ProviderConnector& connector(AgentProvider provider) const;
  /// For the selected conversation; without a path, in the selected workspace's folder, else in the
  /// user's home.
  ProviderConnectorContext connectorContext(
      AgentProvider provider, const std::optional<std::string>& workspacePath = {}) const;
  /// For any conversation, in the folder that it works in; absent when there is none.
  std::optional<ProviderConnectorContext> connectorContext(AgentProvider provider,
                                                           const ThreadExecutionKey& key) const;

  LocalRuntimeStatus localRuntimeStatus() const { return ports_.localRuntimeStatus(); }
  /// Asks the places where a model server may be; what is found comes later.
  void refreshLocalRuntime() { ports_.refreshLocalRuntime(); }
  bool taskletConfigured() const { return ports_.isTaskletConfigured(); }
  /// Stores the webhook, or forgets it where the text is empty. A conversation that Tasklet serves
  /// goes on with the new one. A failure is shown as the error message. `done`, if set, hears
  /// whether it is stored.
  void configureTaskletWebhookURL(const std::string& text, std::function<void(bool)> done = {});

 private:
  ProviderConnectorContext contextOf(AgentProvider provider, const ChatThread* thread) const;

  Settings& settings_;
  WorkspaceTree& tree_;
  Selection& selection_;
  ExecutionTable& executions_;
  const EnginePorts& ports_;
};

}  // namespace vantrell
