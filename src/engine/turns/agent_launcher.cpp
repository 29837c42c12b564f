#include "engine/turns/agent_launcher.h"

#include <fmt/format.h>

#include "engine/core/open_tools.h"
#include "platform/queues/weakly.h"
#include "runtimes/catalog/provider_registry.h"
#include "runtimes/wire/process_client.h"

namespace vantrell {

void noteProvider(RunRecord& run, AgentProvider provider, const ChatThread& thread) {
  run.provider = provider;
  run.modelID = thread.modelID(provider);
  run.effort = thread.effort(provider);
}

AgentLauncher::AgentLauncher(EngineCore& core, SessionIntake& intake, Approvals& approvals,
                             TurnFailures& failures, ProviderSetup& setup, ModelCatalog& catalog,
                             UsageTracker& usage)
    : main_(core.main),
      tree_(core.tree),
      executions_(core.executions),
      intake_(intake),
      approvals_(approvals),
      failures_(failures),
      setup_(setup),
      catalog_(catalog),
      usage_(usage) {}

void AgentLauncher::startClient(AgentProvider provider, const ThreadExecutionKey& key,
                                const std::optional<Uuid>& runID, std::function<void()> afterReady,
                                int startupAttempt) {
  const auto context = setup_.connectorContext(provider, key);
  if (!context) return;
  const Attempt attempt{provider, key, runID, startupAttempt, std::move(afterReady)};
  const ProviderConnector& connector = setup_.connector(provider);
  const auto client = connector.makeClient(*context);
  if (!client) {
    const std::string& hint = connector.setupHint;
    return failures_.fail(key, runID,
                          {.description = hint, .text = hint, .isToldToClients = false});
  }
  attach(client, attempt);
  setCallbacks(client, key);

  // Weak for the client: its own completion must not keep it alive.
  const std::weak_ptr weakClient = client;
  executions_.execution(key).connectTimer =
      main_.after(connectTimeout, weakly(this, [weakClient, attempt](AgentLauncher& self) {
                    self.watchdogFired(weakClient.lock(), attempt);
                  }));
  client->start(tree_.thread(key)->sessionID(provider),
                weakly(this, [weakClient, attempt](AgentLauncher& self, StartResult result) {
                  self.startCompleted(weakClient.lock(), attempt, std::move(result));
                }));
}

void AgentLauncher::attach(const std::shared_ptr<AgentClient>& client, const Attempt& attempt) {
  ThreadExecutionRuntime& execution = executions_.execution(attempt.key);
  execution.endClient();
  endOpenTools(execution, attempt.key, tree_);
  const Date now = main_.now();
  execution.connectionState = ConnectionState::connecting();
  execution.cliLog.clear();
  execution.client = client;
  client->setReceiving(executions_.isReceiving());
  execution.activeProvider = attempt.provider;
  execution.activeRunID = attempt.runID;
  execution.lastActivityAt = now;
  execution.lastPersistedActivityAt = now;
  execution.stallWarningSent = false;
  const ChatThread& thread = *tree_.thread(attempt.key);
  tree_.updateRun(attempt.runID, attempt.key, [&](RunRecord& run) {
    noteProvider(run, attempt.provider, thread);
    run.status = RunRecordStatus::starting;
    run.statusMessage = fmt::format("Connecting to {}…", shortLabel(attempt.provider));
    run.lastActivityAt = now;
  });
  executions_.publishExecutionIfSelected(attempt.key);
}

void AgentLauncher::setCallbacks(const std::shared_ptr<AgentClient>& client,
                                 const ThreadExecutionKey& key) {
  // Every callback first makes sure that this client is still the conversation's: a late event of a
  // stopped or replaced client must change nothing.
  const auto whileServing = [this, key, weakClient = std::weak_ptr(client)](auto body) {
    return weakly(this, [key, weakClient, body](AgentLauncher& self, auto&&... arguments) {
      const auto execution = self.executions_.findServedBy(weakClient.lock(), key);
      if (execution) body(self, *execution, std::forward<decltype(arguments)>(arguments)...);
    });
  };
  using Self = AgentLauncher;
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
      whileServing([key, provider = client->provider()](Self& self, Execution& execution,
                                                        const std::string& text) {
        self.terminated(provider, text, key, execution);
      });
  client->onUsageUpdate = whileServing(
      [](Self& self, Execution&, const ProviderUsage& usage) { self.usage_.reported(usage); });
  if (const auto reporting = std::dynamic_pointer_cast<ProcessClient>(client)) {
    // The models of a provider are the same for all its conversations, so only we must be alive.
    reporting->onModelOptionsUpdate = weakly(
        this,
        [provider = client->provider()](Self& self, std::vector<ProviderModelOption> options) {
          self.catalog_.reported(provider, std::move(options));
        });
    reporting->onPermissionWithdrawn =
        whileServing([key](Self& self, Execution&, std::int64_t requestID) {
          self.approvals_.requestWithdrawn(requestID, key);
        });
  }
}

void AgentLauncher::startCompleted(const std::shared_ptr<AgentClient>& client,
                                   const Attempt& attempt, StartResult result) {
  ThreadExecutionRuntime* execution = executions_.findServedBy(client, attempt.key);
  if (!execution) return;
  if (result) {
    execution->connectTimer.cancel();
    intake_.startSucceeded(attempt.key);
    tree_.updateThread(attempt.key, [&](ChatThread& thread) {
      thread.setSessionID(std::move(result->sessionId), attempt.provider);
    });
    execution->connectionState = ConnectionState::ready();
    if (result->notice) tree_.appendSystemEntry(*result->notice, attempt.key);
    executions_.publishExecutionIfSelected(attempt.key);
    return attempt.afterReady();
  }
  execution->endClient();
  const std::string& description = result.error().localizedDescription();
  failures_.fail(
      attempt.key, attempt.runID,
      {.description = description, .text = failures_.advice(description, attempt.provider)});
  forgetLostSession(attempt, description);
}

// The failure was told. Were the session kept, each later prompt of the task would end like this
// one.
void AgentLauncher::forgetLostSession(const Attempt& attempt, const std::string& description) {
  const auto& isSessionLost = setup_.connector(attempt.provider).isSessionLost;
  const ChatThread* thread = tree_.thread(attempt.key);
  if (!isSessionLost || !thread || !thread->sessionID(attempt.provider)) return;
  if (!isSessionLost(description)) return;
  tree_.updateThread(
      attempt.key, [&attempt](ChatThread& changed) { changed.forgetSessionID(attempt.provider); });
  tree_.appendSystemEntry(
      fmt::format("{} no longer has the session of this task. The next prompt begins a new one, "
                  "which does not know what was said before.",
                  shortLabel(attempt.provider)),
      attempt.key);
}

void AgentLauncher::watchdogFired(const std::shared_ptr<AgentClient>& client,
                                  const Attempt& attempt) {
  ThreadExecutionRuntime* execution = executions_.findServedBy(client, attempt.key);
  if (!execution || execution->connectionState != ConnectionState::connecting()) return;
  const Date now = main_.now();
  const auto label = shortLabel(attempt.provider);
  execution->endClient();
  execution->lastActivityAt = now;

  if (attempt.number == 2) {
    const std::string text = fmt::format(
        "{} could not finish connecting after two attempts. The prompt was not sent. Check the "
        "provider sign-in in Settings, then try again.",
        label);
    return failures_.fail(attempt.key, attempt.runID,
                          {.description = text, .text = text, .entry = text, .isActivity = true});
  }

  tree_.updateRun(attempt.runID, attempt.key, [&](RunRecord& run) {
    run.status = RunRecordStatus::starting;
    run.statusMessage = fmt::format("{} did not finish connecting. Retrying once…", label);
    run.lastActivityAt = now;
  });
  executions_.publishExecutionIfSelected(attempt.key);
  // The state stays `connecting` through the pause: a prompt is queued, a stop ends the retry.
  execution->connectTimer = main_.after(
      pauseBeforeRetry, weakly(this, [attempt](AgentLauncher& self) {
        const auto* waiting = self.executions_.find(attempt.key);
        if (!waiting || waiting->client ||
            waiting->connectionState != ConnectionState::connecting()) {
          return;
        }
        self.startClient(attempt.provider, attempt.key, attempt.runID, attempt.afterReady, 2);
      }));
}

void AgentLauncher::terminated(AgentProvider provider, const std::string& text,
                               const ThreadExecutionKey& key, ThreadExecutionRuntime& execution) {
  const auto lost = std::exchange(execution.runLostWithClient, std::nullopt);
  execution.endClient();
  // A turn that is only on its way to a client, this one or another, does not end with it: it finds
  // no client and starts one.
  const RunRecord* active = tree_.run(execution.activeRunID, key);
  const bool isOnItsWay = active ? active->provider != provider
                                 : execution.connectionState == ConnectionState::connecting();
  if (isOnItsWay) return executions_.publishExecutionIfSelected(key);
  failures_.fail(key, active ? execution.activeRunID : lost, {.description = text, .text = text});
}

}  // namespace vantrell
