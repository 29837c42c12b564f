#include "engine/turns/turn_runner.h"

#include "platform/queues/weakly.h"

namespace vantrell {

bool TurnRunner::isLive(const Turn& turn) const {
  const auto* execution = core_.executions.find(turn.key);
  return execution && execution->activeRunID == turn.runID;
}

void TurnRunner::run(Turn turn, std::string text, std::vector<ChatAttachment> attachments) {
  const auto key = turn.key;
  core_.prompts.assemble(
      key, std::move(text), std::move(attachments),
      weakly(this, [turn = std::move(turn)](TurnRunner& self, std::string prompt) mutable {
        if (!self.isLive(turn)) return;
        turn.originalPrompt = std::move(prompt);
        self.core_.router.probeForNextTurn({}, turn.key, weakly(&self, [turn](TurnRunner& runner) {
                                             if (runner.isLive(turn)) runner.takeRoute(turn);
                                           }));
      }));
}

void TurnRunner::takeRoute(const Turn& turn) {
  const auto decision = core_.router.decideNextTurn({}, turn.key);
  if (!decision) {
    const std::string text =
        "No allowed runtime is ready. Connect a subscription, start a local runtime, or configure "
        "Tasklet in Settings.";
    return core_.runs.failed(turn.key, turn.runID, {.description = text, .text = text});
  }
  const AgentProvider provider = decision->provider;
  core_.runs.routed(turn.key, turn.runID, decision->reason);
  core_.prompts.forFirstProvider(
      turn, provider, weakly(this, [turn, provider](TurnRunner& self, std::string prompt) {
        if (self.isLive(turn)) self.deliver(std::move(prompt), turn, provider);
      }));
}

void TurnRunner::deliver(std::string prompt, Turn turn, AgentProvider provider) {
  turn.attempted.insert(provider);
  const bool isKept = turn.clientWasReady && core_.launcher.isServing(provider, turn.key);
  if (isKept) return performSend(prompt, turn, provider);
  startAndSend(std::move(prompt), std::move(turn), provider);
}

void TurnRunner::startAndSend(std::string prompt, Turn turn, AgentProvider provider) {
  const auto key = turn.key;
  const auto runID = turn.runID;
  core_.launcher.startClient(
      provider, key, runID,
      weakly(this, [prompt = std::move(prompt), turn = std::move(turn),
                    provider](TurnRunner& self) { self.performSend(prompt, turn, provider); }));
}

void TurnRunner::performSend(const std::string& prompt, const Turn& turn, AgentProvider provider) {
  ThreadExecutionRuntime* execution = core_.executions.find(turn.key);
  if (!execution || !execution->client()) return;
  execution->session->prompt(
      prompt,
      weakly(this,
             [prompt, turn, provider](TurnRunner& self,
                                      std::optional<AgentSession::PromptResult> result) {
               if (!self.isLive(turn)) return;
               // The client has not come back from the turn that was stopped before this one.
               if (!result) return self.startAndSend(prompt, turn, provider);
               if (!*result) return self.turnFailed(result->error(), turn, provider);
               self.core_.outcome.completed(turn, provider);
             }),
      weakly(this, [turn, provider](TurnRunner& self) {
        self.core_.runs.working(turn.key, turn.runID, provider);
      }));
}

void TurnRunner::turnFailed(const AgentError& error, const Turn& turn, AgentProvider provider) {
  if (!isUsageLimitFailure(error)) return core_.outcome.failed(error, turn, provider);
  core_.router.markExhausted(provider);
  if (!core_.router.allowsAutomaticHandoff()) return core_.outcome.failed(error, turn, provider);
  const auto isDecided = std::make_shared<bool>(false);
  core_.router.probeForHandoff(provider, turn.attempted, turn.key,
                               weakly(this, [error, turn, provider, isDecided](TurnRunner& self) {
                                 *isDecided = true;
                                 if (!self.isLive(turn)) return;
                                 const auto next = self.core_.router.nextAutomaticProvider(
                                     provider, turn.attempted, turn.key);
                                 if (next) return self.handOff(turn, provider, *next);
                                 self.core_.outcome.failed(error, turn, provider);
                               }));
  // The end of the old runtime must not end the turn while the next provider is looked for.
  const auto& client = core_.executions.execution(turn.key).client();
  if (!*isDecided && client) client->onUnexpectedTermination = nullptr;
}

void TurnRunner::handOff(const Turn& turn, AgentProvider from, AgentProvider to) {
  core_.executions.execution(turn.key).endClient();
  core_.runs.endOpenTools(turn.key);
  core_.prompts.capsule(turn, from, to,
                        weakly(this, [turn, from, to](TurnRunner& self, std::string capsule) {
                          self.core_.runs.handingOff(turn.key, turn.runID, from, to);
                          self.deliver(std::move(capsule), turn, to);
                        }));
}

}  // namespace vantrell
