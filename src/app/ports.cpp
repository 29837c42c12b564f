#include "app/ports.h"

#include "project/context_discovery.h"
#include "project/git_workspace_service.h"
#include "project/project_hook_service.h"
#include "project/repository_state.h"

namespace vantrell {

namespace {

/// Finds the answer on the pool and gives it on the main queue.
template <typename Find, typename Reply>
void answerFrom(BackgroundPool& pool, MainQueue& main, Find find, Reply reply) {
  pool.post([&main, find = std::move(find), reply = std::move(reply)]() mutable {
    main.post([answer = find(), reply = std::move(reply)]() mutable { reply(std::move(answer)); });
  });
}

/// Ends what was asked of git when the ports end, so that nobody who leaves waits for it.
struct StopAtEnd {
  std::stop_source source;
  ~StopAtEnd() { source.request_stop(); }
};

}  // namespace

EnginePorts neutralPorts() {
  const auto nothing = [] {};
  EnginePorts ports;

  ports.localRuntimeStatus = [] { return LocalRuntimeStatus::checking(); };
  ports.isTaskletConfigured = [] { return false; };
  ports.refreshLocalRuntime = nothing;
  ports.saveTaskletWebhook = [](const std::string&, const auto& reply) { reply(false); };
  ports.isSetupKnown = [](AgentProvider) { return true; };
  ports.findOutSetup = [](AgentProvider, const EnginePorts::Done& done) { done(); };
  ports.repositoryState = [](const std::string&, const auto& reply) { reply(""); };

  ports.captureCheckpoint = [](const auto&, const std::string&, WorkspaceCheckpointKind,
                               const EnginePorts::Done& done) { done(); };
  ports.runProjectHook = [](const auto&, const auto&, const auto& reply) { reply(""); };
  ports.discoverContextSources = [](const std::string&, const auto& reply) { reply({}); };
  ports.gitSnapshot = [](const auto&, const auto&, const auto& reply) {
    reply(GitWorkspaceSnapshot::unavailable());
  };
  ports.chooseFolder = [](std::string_view, std::string_view, const auto&) {};

  ports.prepareNotifications = nothing;
  ports.sendRemoteTaskEvent = [](std::string_view, std::string_view, const auto&) {};
  ports.updateRemoteSnapshot = nothing;

  ports.sendRemoteImagineEvent = [](std::string_view, std::string_view) {};

  ports.makeServers = nothing;
  ports.loadTasklet = nothing;
  ports.loadOrchestration = nothing;
  ports.configureRemoteHost = nothing;
  ports.configureExternalSessionImport = nothing;
  ports.configureAutomationScheduler = nothing;
  ports.refreshFleet = nothing;
  ports.startPersonalGateway = nothing;
  return ports;
}

EnginePorts enginePorts(MainQueue& main, BackgroundPool& pool,
                        const ProviderConnectorRegistry& connectors) {
  EnginePorts ports = neutralPorts();
  ports.connector = [&connectors](AgentProvider provider) -> const ProviderConnector& {
    return connectors.connector(provider);
  };
  // Both read from a disk that may be slow.
  ports.repositoryState = [&main, &pool, ending = std::make_shared<StopAtEnd>()](std::string path,
                                                                                 auto reply) {
    answerFrom(
        pool, main,
        [path = std::move(path), stop = ending->source.get_token()] {
          return repositoryState(path, stop);
        },
        std::move(reply));
  };
  ports.discoverContextSources = [&main, &pool](std::string folder, auto reply) {
    answerFrom(
        pool, main, [folder = std::move(folder)] { return discoverContextSources(folder); },
        std::move(reply));
  };
  ports.gitSnapshot = [&main, &pool](const std::string& folder, std::stop_token stop, auto reply) {
    GitWorkspaceService::snapshot(folder, std::move(stop), main, pool, std::move(reply));
  };
  ports.runProjectHook = [service = std::make_shared<ProjectHookService>(main, pool)](
                             const ProjectHook& hook, const std::string& folder, auto reply) {
    service->run(hook, folder, [reply = std::move(reply)](ProjectHookOutcome outcome) {
      reply(std::move(outcome.text));
    });
  };
  return ports;
}

}  // namespace vantrell
