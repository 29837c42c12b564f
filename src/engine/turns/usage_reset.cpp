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

UsageReset::UsageReset(EngineCore& core, UsageTracker& usage, SessionControls& controls,
                       AgentLauncher& starter)
    : selection_(core.selection),
      executions_(core.executions),
      usage_(usage),
      controls_(controls),
      starter_(starter) {}

bool UsageReset::usageResetInProgress() const {
  if (!reset_ || reset_->isConsuming) return reset_.has_value();
  const ThreadExecutionRuntime* execution = executions_.find(reset_->key);
  return execution && execution->stopCount == reset_->stopCount &&
         execution->connectionState == ConnectionState::connecting();
}

void UsageReset::resetSessionUsage() {
  const auto key = selection_.key();
  const ProviderUsage* usage = usage_.usage(AgentProvider::codex);
  if (!key || controls_.sessionConfigurationProvider() != AgentProvider::codex) return;
  if (!usage || usage->manualResetCredits.value_or(0) < 1 || usageResetInProgress()) return;

  ThreadExecutionRuntime& execution = executions_.execution(*key);
  const auto client = execution.client;
  if (client && client->provider() == AgentProvider::codex &&
      execution.connectionState != ConnectionState::connecting()) {
    return consume(client, *key);
  }
  // A turn that is on its way to a client would lose it to this one.
  if (execution.connectionState.isBusy()) return;
  reset_ = Reset{.key = *key, .stopCount = execution.stopCount};
  starter_.startClient(AgentProvider::codex, *key, std::nullopt,
                       weakly(this, [key = *key](UsageReset& self) {
                         const auto* started = self.executions_.find(key);
                         if (started) self.consume(started->client, key);
                       }));
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
        self.executions_.publishExecutionIfSelected(key);
      }));
}

}  // namespace vantrell
