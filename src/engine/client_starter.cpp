#include "engine/client_starter.h"

#include <fmt/format.h>

#include "engine/friendly_error.h"
#include "platform/weakly.h"
#include "runtimes/acp/acp_client.h"
#include "runtimes/provider_registry.h"

namespace vantrell {

ClientStarter::ClientStarter(MainQueue& main, Settings& settings, WorkspaceTree& tree,
                             ExecutionTable& executions, SessionIntake& intake,
                             Approvals& approvals, const EnginePorts& ports)
    : main_(main),
      settings_(settings),
      tree_(tree),
      executions_(executions),
      intake_(intake),
      approvals_(approvals),
      ports_(ports) {}

void ClientStarter::startClient(AgentProvider provider, const ThreadExecutionKey& key,
                                const Uuid& runID, std::function<void()> afterReady,
                                int startupAttempt) {
  const auto path = tree_.executionPath(key);
  if (!path) return;
  const Attempt attempt{provider, key, runID, startupAttempt, std::move(afterReady)};
  const auto client = makeClient(attempt, *path);
  if (!client) {
    ports_.startFailed(provider);
    const std::string& text = ports_.connector(provider).setupHint;
    executions_.execution(key).connectionState = ConnectionState::failed(text);
    executions_.execution(key).errorMessage = text;
    failRun(text, attempt);
    return executions_.publishExecutionIfSelected(key);
  }
  attach(client, attempt);
  setCallbacks(client, key);

  // Weak for the client: its own completion must not keep it alive.
  const std::weak_ptr weakClient = client;
  client->start(tree_.thread(key)->sessionID(provider),
                weakly(this, [weakClient, attempt](ClientStarter& self, StartResult result) {
                  self.startCompleted(weakClient.lock(), attempt, std::move(result));
                }));
  executions_.execution(key).connectTimer =
      main_.after(connectTimeout, weakly(this, [weakClient, attempt](ClientStarter& self) {
                    self.watchdogFired(weakClient.lock(), attempt);
                  }));
}

std::shared_ptr<AgentClient> ClientStarter::makeClient(const Attempt& attempt,
                                                       const std::string& path) const {
  const ChatThread& thread = *tree_.thread(attempt.key);
  ProviderConnectorContext context;
  context.workspacePath = path;
  context.workspaceName = tree_.workspace(attempt.key.workspaceID)->name;
  context.selectedModel = thread.modelID(attempt.provider);
  context.selectedEffort = thread.effort(attempt.provider);
  context.permissionMode = settings_.permissionMode();
  return ports_.connector(attempt.provider).makeClient(context);
}

void ClientStarter::attach(const std::shared_ptr<AgentClient>& client, const Attempt& attempt) {
  ThreadExecutionRuntime& execution = executions_.execution(attempt.key);
  if (execution.client) execution.client->stop();
  const Date now = main_.now();
  execution.connectionState = ConnectionState::connecting();
  execution.cliLog.clear();
  execution.client = client;
  execution.unansweredPrompts = 0;
  execution.activeProvider = attempt.provider;
  execution.activeRunID = attempt.runID;
  execution.lastActivityAt = now;
  execution.lastPersistedActivityAt = now;
  execution.stallWarningSent = false;
  const ChatThread& thread = *tree_.thread(attempt.key);
  const auto modelID = thread.modelID(attempt.provider);
  const auto effort = thread.effort(attempt.provider);
  tree_.updateRun(attempt.runID, attempt.key, [&](RunRecord& run) {
    run.provider = attempt.provider;
    run.modelID = modelID;
    run.effort = effort;
    run.status = RunRecordStatus::starting;
    run.statusMessage = fmt::format("Connecting to {}…", shortLabel(attempt.provider));
    run.lastActivityAt = now;
  });
  executions_.publishExecutionIfSelected(attempt.key);
}

void ClientStarter::setCallbacks(const std::shared_ptr<AgentClient>& client,
                                 const ThreadExecutionKey& key) {
  // Every callback first makes sure that this client is still the conversation's: a late event of a
  // stopped or replaced client must change nothing.
  const auto whileServing = [this, key, weakClient = std::weak_ptr(client)](auto body) {
    return weakly(this, [key, weakClient, body](ClientStarter& self, auto&&... arguments) {
      const auto execution = self.executions_.findServedBy(weakClient.lock(), key);
      if (execution) body(self, *execution, std::forward<decltype(arguments)>(arguments)...);
    });
  };
  using Self = ClientStarter;
  using Execution = ThreadExecutionRuntime;

  client->onSessionUpdate = whileServing([key](Self& self, Execution&, const JsonObject& update) {
    self.intake_.handle(update, key);
  });
  client->onPermissionRequest =
      whileServing([key](Self& self, Execution&, PermissionRequest request) {
        self.approvals_.requestArrived(std::move(request), key);
      });
  client->onLog = whileServing([key](Self& self, Execution& execution, std::string_view text) {
    execution.cliLog.append(text);
    self.executions_.publishExecutionIfSelected(key);
  });
  client->onReplayStarted =
      whileServing([key](Self& self, Execution&) { self.intake_.replayStarted(key); });
  client->onReplayFailed =
      whileServing([key](Self& self, Execution&) { self.intake_.replayFailed(key); });
  client->onUnexpectedTermination =
      whileServing([key](Self& self, Execution& execution, std::string text) {
        self.terminated(std::move(text), key, execution);
      });
  client->onUsageUpdate = whileServing([](Self& self, Execution&, ProviderUsage usage) {
    self.ports_.usageReported(std::move(usage));
  });
  if (const auto acp = std::dynamic_pointer_cast<ACPClient>(client)) {
    // The models of a provider are the same for all its conversations, so only we must be alive.
    acp->onModelOptionsUpdate = weakly(
        this,
        [provider = client->provider()](Self& self, std::vector<ProviderModelOption> options) {
          self.providerModelOptions[provider] = std::move(options);
        });
  }
}

void ClientStarter::startCompleted(const std::shared_ptr<AgentClient>& client,
                                   const Attempt& attempt, StartResult result) {
  ThreadExecutionRuntime* execution = executions_.findServedBy(client, attempt.key);
  if (!execution) return;
  execution->connectTimer.cancel();
  if (result) {
    intake_.replayEnded(attempt.key);
    tree_.updateThread(attempt.key, [&](ChatThread& thread) {
      thread.setSessionID(std::move(result->sessionId), attempt.provider);
    });
    execution->connectionState = ConnectionState::ready();
    tree_.save();
    executions_.publishExecutionIfSelected(attempt.key);
    return attempt.afterReady();
  }

  ports_.startFailed(attempt.provider);
  client->stop();
  execution->client = nullptr;
  intake_.replayFailed(attempt.key);  // should one have begun, its transcript comes back
  const std::string& description = result.error().localizedDescription();
  const std::string text = friendlyError(description, attempt.provider);
  execution->connectionState = ConnectionState::failed(description);
  execution->errorMessage = text;
  failRun(text, attempt);
  executions_.publishExecutionIfSelected(attempt.key);
  ports_.sendRemoteTaskEvent("needs_attention", text, attempt.key);
}

void ClientStarter::watchdogFired(const std::shared_ptr<AgentClient>& client,
                                  const Attempt& attempt) {
  ThreadExecutionRuntime* execution = executions_.findServedBy(client, attempt.key);
  if (!execution || execution->connectionState != ConnectionState::connecting()) return;
  const Date now = main_.now();
  const auto label = shortLabel(attempt.provider);
  client->stop();
  execution->client = nullptr;
  execution->lastActivityAt = now;
  intake_.replayFailed(attempt.key);

  if (attempt.number == 1) {
    tree_.updateRun(attempt.runID, attempt.key, [&](RunRecord& run) {
      run.status = RunRecordStatus::starting;
      run.statusMessage = fmt::format("{} did not finish connecting. Retrying once…", label);
      run.lastActivityAt = now;
    });
    executions_.publishExecutionIfSelected(attempt.key);
    // The state stays `connecting` through the pause: a prompt is queued, a stop ends the retry.
    execution->connectTimer = main_.after(
        pauseBeforeRetry, weakly(this, [attempt](ClientStarter& self) {
          const auto* waiting = self.executions_.find(attempt.key);
          if (!waiting || waiting->client ||
              waiting->connectionState != ConnectionState::connecting()) {
            return;
          }
          self.startClient(attempt.provider, attempt.key, attempt.runID, attempt.afterReady, 2);
        }));
    return;
  }

  const std::string text = fmt::format(
      "{} could not finish connecting after two attempts. The prompt was not sent. Check the "
      "provider sign-in in Settings, then try again.",
      label);
  execution->connectionState = ConnectionState::failed(text);
  execution->errorMessage = text;
  tree_.updateRun(attempt.runID, attempt.key, [&](RunRecord& run) {
    run.status = RunRecordStatus::failed;
    run.statusMessage = text;
    run.lastActivityAt = now;
    run.completedAt = now;
  });
  tree_.appendSystemEntry(text, attempt.key);
  executions_.publishExecutionIfSelected(attempt.key);
  ports_.sendRemoteTaskEvent("needs_attention", text, attempt.key);
}

void ClientStarter::terminated(std::string text, const ThreadExecutionKey& key,
                               ThreadExecutionRuntime& execution) {
  execution.connectTimer.cancel();
  intake_.replayFailed(key);
  execution.connectionState = ConnectionState::failed(text);
  execution.errorMessage = text;
  tree_.updateRun(execution.activeRunID, key, [&](RunRecord& run) {
    run.status = RunRecordStatus::failed;
    run.statusMessage = text;
    run.completedAt = main_.now();
  });
  executions_.publishExecutionIfSelected(key);
  ports_.sendRemoteTaskEvent("needs_attention", text, key);
}

void ClientStarter::failRun(const std::string& text, const Attempt& attempt) {
  tree_.updateRun(attempt.runID, attempt.key, [&](RunRecord& run) {
    run.status = RunRecordStatus::failed;
    run.statusMessage = text;
    run.completedAt = main_.now();
  });
}

}  // namespace vantrell
