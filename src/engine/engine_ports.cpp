#include "engine/engine_ports.h"

namespace vantrell {

EnginePorts EnginePorts::neutral() {
  const auto nothing = [] {};
  EnginePorts ports;

  ports.providerForNextTurn = [](const auto&, const auto&) { return std::nullopt; };
  ports.routingReason = [](AgentProvider, const auto&) { return std::nullopt; };
  ports.automaticHandoff = [](AgentProvider, const auto&, const auto&) { return std::nullopt; };
  ports.repositoryState = [](const std::string&, const auto& reply) { reply(""); };
  ports.usageReported = [](const ProviderUsage&) {};
  ports.allowanceExhausted = [](AgentProvider) {};
  ports.startFailed = [](AgentProvider) {};

  ports.captureCheckpoint = [](const auto&, const std::string&, WorkspaceCheckpointKind,
                               const Done& done) { done(); };
  ports.runProjectHooks = [](ProjectHookEvent, const auto&, const Done& done) { done(); };
  ports.projectContextPrompt = [](const auto&) { return std::string(); };
  ports.refreshGitSnapshot = nothing;

  ports.prepareNotifications = nothing;
  ports.isSessionStatusQuestion = [](std::string_view) { return false; };
  ports.respondToSessionStatus = [](const std::string&, const auto&) {};
  ports.runNextQueuedPrompt = [](const auto&) {};
  ports.sendRemoteTaskEvent = [](std::string_view, std::string_view, const auto&) {};
  ports.isImagineBusy = [] { return false; };

  ports.makeServers = nothing;
  ports.loadTaskletAndImagine = nothing;
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

}  // namespace vantrell
