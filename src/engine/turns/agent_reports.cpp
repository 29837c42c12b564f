#include "engine/turns/agent_reports.h"

namespace vantrell {

/// Owned by the live state of its conversation, and so gone with it.
class AgentReports::Listener : public AgentSession::Listener {
 public:
  Listener(const Dependencies& core, const ThreadExecutionKey& key) : core_(core), key_(key) {}

  void agentUpdated(const JsonObject& update) override { core_.intake.handle(update, key_); }
  void agentAsked() override { core_.approvals.questionOpened(key_); }
  void agentQuestionWithdrawn() override { core_.runs.resumed(key_, false); }
  void agentWaits(const std::string& text) override { core_.runs.waitsFor(key_, text); }
  void agentLogged(std::string_view text) override {
    core_.executions.execution(key_).cliLog.append(text);
    core_.executions.changed(key_);
  }
  void agentEnded(const std::string& text) override { core_.runs.clientLost(key_, text); }
  void agentReplayStarted() override { core_.intake.replayStarted(key_); }
  void agentReplayFailed() override { core_.intake.replayFailed(key_); }
  void agentReportedUsage(const ProviderUsage& usage) override { core_.usage.reported(usage); }
  void agentReportedModels(std::vector<ProviderModelOption> options) override {
    const auto provider = core_.executions.execution(key_).activeProvider;
    if (provider) core_.catalog.reported(*provider, std::move(options));
  }
  void agentEndedCancelledPrompts() override {
    core_.runs.endOpenTools(key_);
    core_.executions.changed(key_);
  }

 private:
  const Dependencies& core_;
  const ThreadExecutionKey key_;
};

void AgentReports::listenTo(const ThreadExecutionKey& key) {
  ThreadExecutionRuntime& execution = core_.executions.execution(key);
  if (execution.listener) return;
  execution.listener = std::make_unique<Listener>(core_, key);
  execution.session->setListener(execution.listener.get());
}

}  // namespace vantrell
