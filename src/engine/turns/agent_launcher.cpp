#include "engine/turns/agent_launcher.h"

#include <fmt/format.h>
#include <utility>

#include "platform/queues/weakly.h"

namespace vantrell {

bool AgentLauncher::isServing(AgentProvider provider, const ThreadExecutionKey& key) const {
  const auto* execution = core_.executions.find(key);
  const auto context = core_.setup.connectorContext(provider, key);
  return execution && context && execution->session->isServedBy(provider) &&
         execution->permissionMode == context->permissionMode;
}

void AgentLauncher::startClient(AgentProvider provider, const ThreadExecutionKey& key,
                                const std::optional<Uuid>& runID, std::function<void()> afterReady,
                                int startupAttempt) {
  const auto context = core_.setup.connectorContext(provider, key);
  if (!context) return;
  const ProviderConnector& connector = core_.setup.connector(provider);
  const auto client = connector.makeClient(*context);
  if (!client) {
    const std::string& hint = connector.setupHint;
    return core_.runs.failed(key, runID, {.description = hint, .text = hint, .isTold = false});
  }
  ThreadExecutionRuntime& execution = core_.executions.execution(key);
  execution.endClient();
  core_.reports.listenTo(key);
  execution.permissionMode = context->permissionMode;
  core_.runs.connecting(key, runID, provider);
  const Attempt attempt{provider, key, runID, startupAttempt, std::move(afterReady)};
  execution.session->start(
      client, core_.tree.thread(key)->sessionID(provider), connectTimeout,
      weakly(this, [attempt](AgentLauncher& self, std::optional<AgentSession::StartResult> result) {
        if (result) return self.startCompleted(attempt, *std::move(result));
        self.timedOut(attempt);
      }));
}

void AgentLauncher::startCompleted(const Attempt& attempt, AgentSession::StartResult result) {
  if (result) {
    core_.intake.startSucceeded(attempt.key);
    core_.tree.updateThread(attempt.key, [&](ChatThread& thread) {
      thread.setSessionID(std::move(result->sessionId), attempt.provider);
    });
    core_.runs.connected(attempt.key);
    if (result->notice) core_.tree.appendSystemEntry(*result->notice, attempt.key);
    return attempt.afterReady();
  }
  core_.executions.execution(attempt.key).endClient();
  const std::string& description = result.error().localizedDescription();
  core_.runs.failed(
      attempt.key, attempt.runID,
      {.description = description, .text = core_.setup.advice(description, attempt.provider)});
  forgetLostSession(attempt, description);
}

// The failure was told. Were the session kept, each later prompt of the task would end like this
// one.
void AgentLauncher::forgetLostSession(const Attempt& attempt, const std::string& description) {
  const auto& isSessionLost = core_.setup.connector(attempt.provider).isSessionLost;
  const ChatThread* thread = core_.tree.thread(attempt.key);
  if (!isSessionLost || !thread || !thread->sessionID(attempt.provider)) return;
  if (!isSessionLost(description)) return;
  core_.tree.updateThread(
      attempt.key, [&attempt](ChatThread& changed) { changed.forgetSessionID(attempt.provider); });
  core_.tree.appendSystemEntry(
      fmt::format("{} no longer has the session of this task. The next prompt begins a new one, "
                  "with the visible conversation attached.",
                  shortLabel(attempt.provider)),
      attempt.key);
}

void AgentLauncher::timedOut(const Attempt& attempt) {
  ThreadExecutionRuntime& execution = core_.executions.execution(attempt.key);
  execution.endClient();
  if (attempt.number == 2) {
    const std::string text = fmt::format(
        "{} could not finish connecting after two attempts. The prompt was not sent. Check the "
        "provider sign-in in Settings, then try again.",
        shortLabel(attempt.provider));
    return core_.runs.failed(
        attempt.key, attempt.runID,
        {.description = text, .text = text, .entry = text, .isActivity = true});
  }
  core_.runs.retrying(
      attempt.key, attempt.runID, attempt.provider, weakly(this, [attempt](AgentLauncher& self) {
        self.startClient(attempt.provider, attempt.key, attempt.runID, attempt.afterReady, 2);
      }));
}

}  // namespace vantrell
