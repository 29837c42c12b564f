#include "engine/turns/turn_runner.h"

#include <fmt/format.h>

#include "engine/turns/handoff_capsule.h"
#include "platform/queues/weakly.h"

namespace vantrell {

bool TurnRunner::isLive(const Turn& turn) const {
  const auto* execution = core_.executions.find(turn.key);
  return core_.tree.thread(turn.key) && execution && execution->activeRunID == turn.runID;
}

void TurnRunner::routePrompt(const Turn& turn) {
  core_.router.probeForNextTurn(turn.attempted, turn.key, weakly(this, [turn](TurnRunner& self) {
                                  if (!self.isLive(turn)) return;
                                  // Whether a capsule is needed, and what stands in it, is read
                                  // from the transcript.
                                  self.core_.tree.loadTranscript(
                                      turn.key, weakly(&self, [turn](TurnRunner& runner) {
                                        if (runner.isLive(turn)) runner.takeRoute(turn);
                                      }));
                                }));
}

void TurnRunner::takeRoute(Turn turn) {
  const auto decision = core_.router.decideNextTurn(turn.attempted, turn.key);
  if (!decision) {
    const std::string text =
        "No allowed runtime is ready. Connect a subscription, start a local runtime, or configure "
        "Tasklet in Settings.";
    return core_.runs.failed(turn.key, turn.runID, {.description = text, .text = text});
  }
  const AgentProvider provider = decision->provider;
  core_.runs.routed(turn.key, turn.runID, decision->reason);
  const auto last = core_.tree.thread(turn.key)->lastProvider;
  const bool isSwitch = last && *last != provider;
  if (!turn.attempted.empty() || (!isSwitch && !knowsNothing(turn, provider))) {
    std::string prompt = turn.originalPrompt;
    return deliver(std::move(prompt), std::move(turn), provider);
  }
  const AgentProvider from = last.value_or(provider);
  buildCapsule(turn, from, provider, [turn, from, provider](TurnRunner& self, std::string capsule) {
    if (from != provider) {
      self.core_.tree.appendSystemEntry(
          fmt::format("Switched this task from {} to {} with visible context attached.",
                      shortLabel(from), shortLabel(provider)),
          turn.key);
    }
    self.deliver(std::move(capsule), turn, provider);
  });
}

/// The conversation has work of an agent, but the provider has no session in which it is: after a
/// fork, a branch, a restore, a move to another folder.
bool TurnRunner::knowsNothing(const Turn& turn, AgentProvider provider) const {
  const ChatThread* thread = core_.tree.thread(turn.key);
  const auto* execution = core_.executions.find(turn.key);
  if (thread->sessionID(provider) || execution->session->isServedBy(provider)) return false;
  return std::ranges::any_of(thread->entries, [](const ChatEntry& entry) {
    return entry.provider && entry.kind != ChatEntryKind::thought;
  });
}

void TurnRunner::buildCapsule(const Turn& turn, AgentProvider from, AgentProvider to,
                              std::function<void(TurnRunner&, std::string)> then) {
  const auto path = core_.tree.executionPath(turn.key);
  if (!path) return;
  core_.project.repositoryState(
      *path, weakly(this, [turn, from, to, path = *path, then = std::move(then)](
                              TurnRunner& self, const std::string& repositoryState) {
        self.core_.context.projectContextPrompt(
            turn.key, weakly(&self, [turn, from, to, path, then, repositoryState](
                                        TurnRunner& runner, const std::string& context) {
              // Reading both takes a while: the turn may have been stopped meanwhile.
              if (!runner.isLive(turn)) return;
              then(runner, HandoffCapsule::build({from, to, turn.originalPrompt,
                                                  runner.core_.tree.thread(turn.key)->entries,
                                                  *runner.core_.executions.find(turn.key)->plan,
                                                  path, repositoryState, context}));
            }));
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
  if (!execution || !execution->client() || !core_.tree.thread(turn.key)) return;
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
  core_.usage.markExhausted(provider);
  if (!core_.router.allowsAutomaticHandoff(turn.key))
    return core_.outcome.failed(error, turn, provider);
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

void TurnRunner::handOff(Turn turn, AgentProvider from, AgentProvider to) {
  core_.executions.execution(turn.key).endClient();
  core_.runs.endOpenTools(turn.key);
  buildCapsule(turn, from, to, [turn, from, to](TurnRunner& self, std::string capsule) {
    self.core_.tree.appendSystemEntry(
        fmt::format("{} allowance reached. Automatically handed this task to {}.", shortLabel(from),
                    shortLabel(to)),
        turn.key);
    self.core_.runs.routed(
        turn.key, turn.runID,
        fmt::format("{} allowance reached; continued with {}.", shortLabel(from), shortLabel(to)));
    self.core_.runs.handingOff(turn.key);
    self.deliver(std::move(capsule), turn, to);
  });
}

}  // namespace vantrell
