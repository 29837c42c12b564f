#include "app/ports.h"

namespace vantrell {

EnginePorts neutralPorts() {
  const auto nothing = [] {};
  EnginePorts ports;

  ports.providerForNextTurn = [](const auto&, const auto&) { return std::nullopt; };
  ports.localRuntimeStatus = [] { return LocalRuntimeStatus::checking(); };
  ports.isTaskletConfigured = [] { return false; };
  ports.routingReason = [](AgentProvider, const auto&) { return std::nullopt; };
  ports.nextAutomaticProvider = [](AgentProvider, const auto&, const auto&) {
    return std::nullopt;
  };
  ports.repositoryState = [](const std::string&, const auto& reply) { reply(""); };
  ports.usageReported = [](const ProviderUsage&) {};
  ports.allowanceExhausted = [](AgentProvider) {};
  ports.startFailed = [](AgentProvider) {};

  ports.captureCheckpoint = [](const auto&, const std::string&, WorkspaceCheckpointKind,
                               const EnginePorts::Done& done) { done(); };
  ports.runProjectHooks = [](ProjectHookEvent, const auto&, const EnginePorts::Done& done) {
    done();
  };
  ports.projectContextPrompt = [](const auto&) { return std::string(); };
  ports.refreshGitSnapshot = nothing;
  ports.loadProjectContext = nothing;
  ports.chooseFolder = [](std::string_view, std::string_view, const auto&) {};

  ports.prepareNotifications = nothing;
  ports.isSessionStatusQuestion = [](std::string_view) { return false; };
  ports.respondToSessionStatus = [](const std::string&, const auto&) {};
  ports.runNextQueuedPrompt = [](const auto&) {};
  ports.sendRemoteTaskEvent = [](std::string_view, std::string_view, const auto&) {};
  ports.updateRemoteSnapshot = nothing;

  ports.sendRemoteImagineEvent = [](std::string_view, std::string_view) {};

  ports.makeServers = nothing;
  ports.loadTasklet = nothing;
  ports.loadOrchestration = nothing;
  ports.configureRemoteHost = nothing;
  ports.refreshRuntimes = nothing;
  ports.configureExternalSessionImport = nothing;
  ports.configureAutomationScheduler = nothing;
  ports.configureExecutionMonitor = nothing;
  ports.refreshFleet = nothing;
  ports.startPersonalGateway = nothing;
  return ports;
}

EnginePorts enginePorts(const ProviderConnectorRegistry& connectors,
                        const std::optional<AgentProvider>& frontDoorProvider) {
  EnginePorts ports = neutralPorts();
  ports.connector = [&connectors](AgentProvider provider) -> const ProviderConnector& {
    return connectors.connector(provider);
  };
  // Until there is routing, every turn goes where the front door says.
  ports.providerForNextTurn = [&frontDoorProvider](
                                  const std::set<AgentProvider>& attempted,
                                  const ThreadExecutionKey&) -> std::optional<AgentProvider> {
    if (!frontDoorProvider || attempted.contains(*frontDoorProvider)) return std::nullopt;
    return frontDoorProvider;
  };
  return ports;
}

}  // namespace vantrell
