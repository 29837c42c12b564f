#include "engine/turns/turn_runner.h"

#include <fmt/format.h>

#include "engine/core/open_tools.h"
#include "engine/turns/handoff_capsule.h"
#include "platform/queues/weakly.h"

namespace vantrell {

TurnRunner::TurnRunner(EngineCore& core, Router& router, ProjectContextService& context,
                       UsageTracker& usage, AgentLauncher& starter, TurnFailures& failures,
                       TurnEnds& ends)
    : main_(core.main),
      tree_(core.tree),
      executions_(core.executions),
      router_(router),
      context_(context),
      usage_(usage),
      starter_(starter),
      failures_(failures),
      ends_(ends),
      ports_(core.ports) {}

bool TurnRunner::isLive(const Turn& turn) const {
  const auto* execution = executions_.find(turn.key);
  return tree_.thread(turn.key) && execution && execution->activeRunID == turn.runID;
}

void TurnRunner::routePrompt(const Turn& turn) {
  router_.findOutForNextTurn(turn.attempted, turn.key, weakly(this, [turn](TurnRunner& self) {
                               if (self.isLive(turn)) self.takeRoute(turn);
                             }));
}

void TurnRunner::takeRoute(Turn turn) {
  const auto provider = router_.providerForNextTurn(turn.attempted, turn.key);
  if (!provider) {
    const std::string text =
        "No allowed runtime is ready. Connect a subscription, start a local runtime, or configure "
        "Tasklet in Settings.";
    return failures_.fail(turn.key, turn.runID, {.description = text, .text = text});
  }
  const auto preview = router_.routingPreviewFor(turn.key);
  const auto* candidate = preview.find(*provider);
  tree_.updateRun(turn.runID, turn.key, [&](RunRecord& run) {
    run.routingReason = candidate ? std::optional(candidate->reason) : std::nullopt;
  });
  const ChatThread* thread = tree_.thread(turn.key);
  const auto last = thread ? thread->lastProvider : std::nullopt;
  if (turn.attempted.empty() && last && *last != *provider) {
    return switchProvider(std::move(turn), *last, *provider);
  }
  std::string prompt = turn.originalPrompt;
  deliver(std::move(prompt), std::move(turn), *provider);
}

void TurnRunner::switchProvider(Turn turn, AgentProvider from, AgentProvider to) {
  buildCapsule(turn, from, to, [turn, from, to](TurnRunner& self, std::string capsule) mutable {
    self.tree_.appendSystemEntry(
        fmt::format("Switched this task from {} to {} with visible context attached.",
                    shortLabel(from), shortLabel(to)),
        turn.key);
    self.deliver(std::move(capsule), std::move(turn), to);
  });
}

void TurnRunner::buildCapsule(const Turn& turn, AgentProvider from, AgentProvider to,
                              std::function<void(TurnRunner&, std::string)> then) {
  const auto path = tree_.executionPath(turn.key);
  if (!path) return;
  ports_.repositoryState(
      *path, weakly(this, [turn, from, to, path = *path, then = std::move(then)](
                              TurnRunner& self, const std::string& repositoryState) {
        self.context_.projectContextPrompt(
            turn.key, weakly(&self, [turn, from, to, path, then, repositoryState](
                                        TurnRunner& delivery, const std::string& context) {
              // Reading both takes a while: the turn may have been stopped meanwhile.
              if (!delivery.isLive(turn)) return;
              then(delivery, HandoffCapsule::build({from, to, turn.originalPrompt,
                                                    delivery.tree_.thread(turn.key)->entries,
                                                    *delivery.executions_.find(turn.key)->plan,
                                                    path, repositoryState, context}));
            }));
      }));
}

void TurnRunner::deliver(std::string prompt, Turn turn, AgentProvider provider) {
  turn.attempted.insert(provider);
  const ThreadExecutionRuntime& execution = executions_.execution(turn.key);
  const bool isKept =
      execution.client && execution.client->provider() == provider && turn.clientWasReady;
  if (!isKept) return startAndSend(std::move(prompt), std::move(turn), provider);
  if (execution.unansweredPrompts == 0) return performSend(prompt, turn, provider);
  sendBehindStoppedTurn(std::move(prompt), std::move(turn), provider);
}

void TurnRunner::startAndSend(std::string prompt, Turn turn, AgentProvider provider) {
  const auto key = turn.key;
  const auto runID = turn.runID;
  starter_.startClient(
      provider, key, runID,
      weakly(this, [prompt = std::move(prompt), turn = std::move(turn),
                    provider](TurnRunner& self) { self.performSend(prompt, turn, provider); }));
}

// A turn that was stopped ends when its runtime says so, and a runtime works on one prompt at a
// time: Claude Code refuses a second one, and Codex takes it into the turn that is being stopped.
void TurnRunner::sendBehindStoppedTurn(std::string prompt, Turn turn, AgentProvider provider) {
  const auto key = turn.key;
  ThreadExecutionRuntime& execution = executions_.execution(key);
  execution.stoppedTurnEnded = weakly(this, [prompt = std::move(prompt), turn = std::move(turn),
                                             provider](TurnRunner& self, bool isClientUsable) {
    if (!self.isLive(turn)) return;
    self.executions_.execution(turn.key).connectTimer.cancel();
    if (isClientUsable) return self.performSend(prompt, turn, provider);
    self.startAndSend(prompt, turn, provider);
  });
  execution.connectTimer = main_.after(stopPatience, weakly(this, [key](TurnRunner& self) {
                                         if (auto* waiting = self.executions_.find(key)) {
                                           waiting->tellStoppedTurnEnded(false);
                                         }
                                       }));
}

void TurnRunner::performSend(const std::string& prompt, const Turn& turn, AgentProvider provider) {
  ThreadExecutionRuntime* execution = executions_.find(turn.key);
  const ChatThread* thread = tree_.thread(turn.key);
  if (!execution || !execution->client || !thread) return;
  const Date now = main_.now();
  execution->fallbackMessageID = Uuid::random().text();
  execution->connectionState = ConnectionState::working();
  execution->lastActivityAt = now;
  execution->lastPersistedActivityAt = now;
  execution->stallWarningSent = false;
  tree_.updateRun(turn.runID, turn.key, [&](RunRecord& run) {
    // A kept client passed no start for this run.
    noteProvider(run, provider, *thread);
    run.status = RunRecordStatus::running;
    run.statusMessage = fmt::format("{} is working", shortLabel(provider));
    run.lastActivityAt = now;
  });
  executions_.publishExecutionIfSelected(turn.key);

  ++execution->unansweredPrompts;
  const std::weak_ptr weakClient = execution->client;
  execution->client->sendPrompt(
      prompt, weakly(this, [weakClient, turn, provider](TurnRunner& self, PromptResult result) {
        // A late answer of a stopped or replaced client, or of a turn that was stopped, changes
        // nothing.
        auto* serving = self.executions_.findServedBy(weakClient.lock(), turn.key);
        if (!serving) return;
        --serving->unansweredPrompts;
        if (serving->activeRunID != turn.runID) {
          if (serving->unansweredPrompts == 0) endOpenTools(*serving, turn.key, self.tree_);
          self.executions_.publishExecutionIfSelected(turn.key);
          if (serving->unansweredPrompts > 0) return;
          return serving->tellStoppedTurnEnded(result || !result.error().isDisconnection());
        }
        if (result) {
          self.ends_.completed(turn, provider);
        } else {
          self.turnFailed(result.error(), turn, provider);
        }
      }));
}

void TurnRunner::turnFailed(const AgentError& error, const Turn& turn, AgentProvider provider) {
  if (!isUsageLimitFailure(error)) return ends_.failed(error, turn, provider);
  usage_.markExhausted(provider);
  if (!router_.allowsAutomaticHandoff()) return ends_.failed(error, turn, provider);
  const auto isDecided = std::make_shared<bool>(false);
  router_.findOutForHandoff(provider, turn.attempted, turn.key,
                            weakly(this, [error, turn, provider, isDecided](TurnRunner& self) {
                              *isDecided = true;
                              if (!self.isLive(turn)) return;
                              const auto next = self.router_.nextAutomaticProvider(
                                  provider, turn.attempted, turn.key);
                              if (next) return self.handOff(turn, provider, *next);
                              self.ends_.failed(error, turn, provider);
                            }));
  // A runtime that ends after its last word must not end the turn while somebody else is looked
  // for.
  const auto& client = executions_.execution(turn.key).client;
  if (!*isDecided && client) client->onUnexpectedTermination = nullptr;
}

void TurnRunner::handOff(Turn turn, AgentProvider from, AgentProvider to) {
  // What the old client still says is no part of the turn any more.
  ThreadExecutionRuntime& execution = executions_.execution(turn.key);
  execution.endClient();
  endOpenTools(execution, turn.key, tree_);
  buildCapsule(turn, from, to, [turn, from, to](TurnRunner& self, std::string capsule) mutable {
    self.tree_.appendSystemEntry(
        fmt::format("{} allowance reached. Automatically handed this task to {}.", shortLabel(from),
                    shortLabel(to)),
        turn.key);
    self.tree_.updateRun(turn.runID, turn.key, [&](RunRecord& run) {
      run.routingReason =
          fmt::format("{} allowance reached; continued with {}.", shortLabel(from), shortLabel(to));
    });
    self.executions_.execution(turn.key).connectionState = ConnectionState::idle();
    self.executions_.publishExecutionIfSelected(turn.key);
    self.deliver(std::move(capsule), std::move(turn), to);
  });
}

}  // namespace vantrell
