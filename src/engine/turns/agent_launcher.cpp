#include "engine/turns/agent_launcher.h"

#include <fmt/format.h>
#include <utility>

#include "platform/queues/weakly.h"

namespace vantrell {

/// Carries what a conversation's client says to the engine. Owned by the live state, and so gone
/// with the conversation.
class AgentLauncher::ConversationListener : public AgentSession::Listener {
 public:
  ConversationListener(AgentLauncher& launcher, const ThreadExecutionKey& key)
      : launcher_(launcher), core_(launcher.core_), key_(key) {}

  void agentUpdated(const JsonObject& update) override { core_.intake.handle(update, key_); }
  void agentAsked() override { core_.approvals.questionOpened(key_); }
  void agentQuestionWithdrawn() override { core_.runs.resumed(key_, false); }
  void agentWaits(const std::string& text) override { core_.runs.waitsFor(key_, text); }
  void agentLogged(std::string_view text) override {
    core_.executions.execution(key_).cliLog.append(text);
    core_.executions.changed(key_);
  }
  void agentEnded(const std::string& text) override { launcher_.terminated(text, key_); }
  void agentReplayStarted() override { core_.intake.replayStarted(key_); }
  void agentReplayFailed() override { core_.intake.replayFailed(key_); }
  void agentReportedUsage(const ProviderUsage& usage) override { core_.usage.reported(usage); }
  void agentReportedModels(AgentProvider provider,
                           std::vector<ProviderModelOption> options) override {
    core_.catalog.reported(provider, std::move(options));
  }
  void agentEndedCancelledPrompts() override {
    core_.runs.endOpenTools(key_);
    core_.executions.changed(key_);
  }

 private:
  AgentLauncher& launcher_;
  const Dependencies& core_;
  const ThreadExecutionKey key_;
};

bool AgentLauncher::isServing(AgentProvider provider, const ThreadExecutionKey& key) const {
  const auto* execution = core_.executions.find(key);
  return execution && execution->session->isServedBy(provider) &&
         execution->startedWith == core_.setup.choicesFor(provider, key);
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
  if (!execution.listener) {
    execution.listener = std::make_unique<ConversationListener>(*this, key);
    execution.session->setListener(execution.listener.get());
  }
  execution.startedWith = core_.setup.choicesOf(*context);
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
  core_.runs.failed(attempt.key, attempt.runID,
                    {.description = description,
                     .text = core_.setup.advice(description, attempt.provider, attempt.key)});
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
  core_.runs.retrying(attempt.key, attempt.runID, attempt.provider);
  // The state stays `connecting` through the pause: a prompt is queued, a stop ends the retry.
  execution.retryTimer = core_.main.after(
      pauseBeforeRetry, weakly(this, [attempt](AgentLauncher& self) {
        const auto* waiting = self.core_.executions.find(attempt.key);
        if (!waiting || waiting->client() ||
            waiting->connectionState != ConnectionState::connecting()) {
          return;
        }
        self.startClient(attempt.provider, attempt.key, attempt.runID, attempt.afterReady, 2);
      }));
}

void AgentLauncher::terminated(const std::string& text, const ThreadExecutionKey& key) {
  ThreadExecutionRuntime& execution = core_.executions.execution(key);
  const auto provider = execution.activeProvider;
  const auto lost = std::exchange(execution.runLostWithClient, std::nullopt);
  execution.endClient();
  // A turn that is only on its way to a client, this one or another, does not end with it: it finds
  // no client and starts one.
  const RunRecord* active = core_.tree.run(execution.activeRunID, key);
  const bool isOnItsWay = active ? active->provider != provider
                                 : execution.connectionState == ConnectionState::connecting();
  if (isOnItsWay) return core_.executions.changed(key);
  core_.runs.failed(key, active ? execution.activeRunID : lost,
                    {.description = text, .text = text});
}

}  // namespace vantrell
