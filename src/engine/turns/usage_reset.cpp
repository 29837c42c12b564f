#include "engine/turns/usage_reset.h"

#include <fmt/format.h>

#include "platform/queues/weakly.h"
#include "runtimes/codex/codex_app_server_client.h"

namespace vantrell {

std::optional<std::string> usageResetMessage(
    const std::expected<std::string, AgentError>& outcome) {
  if (outcome == "reset") return std::nullopt;
  if (outcome == "noCredit") return "No Codex reset credit is currently available.";
  if (outcome == "nothingToReset") {
    return "No current Codex allowance window is eligible for a manual reset.";
  }
  return fmt::format("Could not reset Codex usage: {}",
                     outcome ? *outcome : outcome.error().localizedDescription());
}

UsageReset::UsageReset(ExecutionTable& executions, UsageTracker& usage, SessionControls& controls,
                       AgentLauncher& launcher)
    : executions_(executions), usage_(usage), controls_(controls), launcher_(launcher) {}

bool UsageReset::usageResetInProgress() const {
  if (!reset_ || reset_->isConsuming) return reset_.has_value();
  const ThreadExecutionRuntime* execution = executions_.find(reset_->key);
  return execution && execution->stopCount == reset_->stopCount &&
         execution->connectionState == ConnectionState::connecting();
}

Result<> UsageReset::resetSessionUsage(const ThreadExecutionKey& key) {
  if (controls_.sessionConfigurationProvider(key) != AgentProvider::codex) {
    return refuse("Only Codex has credits for a manual reset.");
  }
  const ProviderUsage* usage = usage_.usage(AgentProvider::codex);
  if (!usage || usage->manualResetCredits.value_or(0) < 1) {
    return refuse(*usageResetMessage("noCredit"));
  }
  if (usageResetInProgress()) return refuse("A reset is under way already.");

  ThreadExecutionRuntime& execution = executions_.execution(key);
  if (execution.session->isServedBy(AgentProvider::codex) &&
      execution.connectionState != ConnectionState::connecting()) {
    consume(execution.client(), key);
    return {};
  }
  // A turn that is on its way to a client would lose it to this one.
  if (execution.connectionState.isBusy()) {
    return refuse("Wait until the turn has ended, or stop it, before you reset the allowance.");
  }
  reset_ = Reset{.key = key, .stopCount = execution.stopCount};
  launcher_.startClient(AgentProvider::codex, key, std::nullopt,
                        weakly(this, [key](UsageReset& self) {
                          const auto* started = self.executions_.find(key);
                          if (started) self.consume(started->client(), key);
                        }));
  return {};
}

void UsageReset::consume(const std::shared_ptr<AgentClient>& client,
                         const ThreadExecutionKey& key) {
  const auto codex = std::dynamic_pointer_cast<CodexAppServerClient>(client);
  if (!codex) return reset_.reset();
  reset_ = Reset{.key = key, .isConsuming = true};
  codex->consumeUsageReset(
      weakly(this, [key](UsageReset& self, const std::expected<std::string, AgentError>& outcome) {
        self.reset_.reset();
        ThreadExecutionRuntime* execution = self.executions_.find(key);
        if (!execution) return;
        execution->errorMessage = usageResetMessage(outcome);
        self.executions_.changed(key);
      }));
}

}  // namespace vantrell
