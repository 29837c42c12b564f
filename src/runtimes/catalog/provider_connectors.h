// How a provider is used: whether it can be used now, how a client of it is made, and which models
// it offers before its runtime has been asked. Main queue.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/queues/dispatch.h"
#include "records/values/agent_provider.h"
#include "records/values/task_modes.h"
#include "runtimes/catalog/provider_registry.h"
#include "runtimes/local/local_runtime.h"
#include "runtimes/wire/provider_options.h"

namespace vantrell {

struct ACPConfiguration;
class AgentClient;
class HttpClient;
class TaskletWebhook;
class UserDefaults;

/// What a connector is told about the conversation that wants a client, and about the moment.
struct ProviderConnectorContext {
  std::string workspacePath;
  std::string workspaceName;
  std::optional<std::string> selectedModel;
  std::optional<std::string> selectedEffort;
  GrokPermissionMode permissionMode = GrokPermissionMode::ask;
  LocalRuntimeStatus localRuntimeStatus = LocalRuntimeStatus::checking();
  bool taskletConfigured = false;
};

struct ProviderConnector {
  AgentProvider provider = AgentProvider::grok;
  std::string setupHint;
  std::function<bool(const ProviderConnectorContext&)> isAvailable;
  /// Null when no client can be made; the setup hint then tells what to do.
  std::function<std::shared_ptr<AgentClient>(const ProviderConnectorContext&)> makeClient;
  std::function<std::vector<ProviderModelOption>(const ProviderConnectorContext&)> modelOptions;
  /// What to tell the user for a failure's words; unset: the provider's usual advice.
  std::function<std::string(const std::string& description)> advice;
  /// Whether a failed start says that the runtime no longer has the session; unset: it would have
  /// begun a new one by itself.
  std::function<bool(std::string_view description)> isSessionLost{};
  /// Who pays for a turn; absent: what the provider's descriptor says.
  std::optional<ProviderBillingMode> billingMode{};

  bool isMetered() const;
};

/// What connectors work with. All references must outlive the registry and the clients.
struct ConnectorDependencies {
  MainQueue& main;
  BackgroundPool& pool;
  const UserDefaults& defaults;
  HttpClient& http;
  std::shared_ptr<const TaskletWebhook> webhook;
  /// The path that the user has set for a provider's program, or absent.
  std::function<std::optional<std::string>(AgentProvider)> customExecutable;
};

/// Writes the profile for the server and returns all that a client of the local provider is made
/// of. Absent when the server has no model, or the profile cannot be written. The root is the
/// user's data folder where none is given.
std::optional<ACPConfiguration> localHarness(
    const LocalRuntimeConnection& connection, const ProviderConnectorContext& context,
    const std::string& program,
    const std::optional<std::string>& applicationSupportRoot = std::nullopt);

class ProviderConnectorRegistry {
 public:
  explicit ProviderConnectorRegistry(ConnectorDependencies dependencies);

  const ProviderConnector& connector(AgentProvider provider) const;
  /// Puts another connector in a provider's place, for this process.
  void replace(ProviderConnector connector);

 private:
  std::map<AgentProvider, ProviderConnector> connectors_;
};

}  // namespace vantrell
