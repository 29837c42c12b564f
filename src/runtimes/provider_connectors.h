// The means of using a provider: whether it can be used now, and how a client of it is made.
// Main queue.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "platform/dispatch.h"
#include "records/agent_provider.h"
#include "records/task_modes.h"

namespace vantrell {

class AgentClient;
class UserDefaults;

/// What a connector is told about the conversation that wants a client.
struct ProviderConnectorContext {
  std::string workspacePath;
  std::string workspaceName;
  std::optional<std::string> selectedModel;
  std::optional<std::string> selectedEffort;
  GrokPermissionMode permissionMode = GrokPermissionMode::ask;
};

struct ProviderConnector {
  AgentProvider provider = AgentProvider::grok;
  std::string setupHint;
  std::function<bool(const ProviderConnectorContext&)> isAvailable;
  /// Null when no client can be made; the setup hint then tells what to do.
  std::function<std::shared_ptr<AgentClient>(const ProviderConnectorContext&)> makeClient;
  /// What to tell the user for a failure's words; unset: the provider's usual advice.
  std::function<std::string(const std::string& description)> advice;
};

class ProviderConnectorRegistry {
 public:
  /// `customExecutable` gives the path that the user has set for a provider's program, or absent.
  /// All references must outlive the registry.
  ProviderConnectorRegistry(
      MainQueue& main, BackgroundPool& pool, const UserDefaults& defaults,
      std::function<std::optional<std::string>(AgentProvider)> customExecutable);

  const ProviderConnector& connector(AgentProvider provider) const;
  /// Puts another connector in a provider's place, for this process.
  void replace(ProviderConnector connector);

 private:
  std::map<AgentProvider, ProviderConnector> connectors_;
};

}  // namespace vantrell
