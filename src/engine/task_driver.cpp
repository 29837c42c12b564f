#include "engine/task_driver.h"

#include <fmt/format.h>

#include "engine/handoff_capsule.h"
#include "engine/open_tools.h"
#include "engine/prompt_assembly.h"
#include "platform/text.h"
#include "platform/weakly.h"
#include "runtimes/provider_registry.h"

namespace vantrell {

namespace {
constexpr std::size_t checkpointLabelLength = 48;  // user-perceived characters of the prompt
}

TaskDriver::TaskDriver(EngineCore& core, ClientStarter& starter, TurnFailures& failures,
                       UsageDesk& usage, Router& router, ProjectContextDesk& context, GitDesk& git,
                       HookDesk& hooks)
    : main_(core.main),
      settings_(core.settings),
      tree_(core.tree),
      selection_(core.selection),
      executions_(core.executions),
      starter_(starter),
      failures_(failures),
      usage_(usage),
      router_(router),
      context_(context),
      git_(git),
      hooks_(hooks),
      ports_(core.ports) {}

bool TaskDriver::canSend() const {
  return selection_.workspaceID() && !executions_.mirror().connectionState.isBusy();
}

bool TaskDriver::canSubmitPrompt() const {
  return selection_.workspaceID().has_value();
}

// ---- the way in ---------------------------------------------------------------------------------

void TaskDriver::send(std::string_view text, std::vector<ChatAttachment> attachments) {
  std::string prompt(text::trimmed(text));
  const auto key = selection_.key();
  if (prompt.empty() || !selection_.workspaceID() || !key) return;
  if (attachments.empty() && ports_.isSessionStatusQuestion(prompt)) {
    return ports_.respondToSessionStatus(std::move(prompt), *key);
  }
  const auto* execution = executions_.find(*key);
  if (execution && execution->connectionState.isBusy()) {
    tree_.updateThread(*key, [&](ChatThread& thread) {
      thread.queuedPrompts.push_back(
          {Uuid::random(), std::move(prompt), std::move(attachments), main_.now()});
      thread.updatedAt = main_.now();
    });
    return tree_.save();
  }
  sendNow(std::move(prompt), std::move(attachments), *key);
}

void TaskDriver::sendNow(std::string text, std::vector<ChatAttachment> attachments) {
  if (const auto key = selection_.key()) sendNow(std::move(text), std::move(attachments), *key);
}

void TaskDriver::sendNow(std::string text, std::vector<ChatAttachment> attachments,
                         const ThreadExecutionKey& key) {
  if (!tree_.thread(key)) return;
  ports_.prepareNotifications();
  tree_.updateThreadTitleIfNeeded(text, key);
  tree_.save();

  ChatEntry entry;
  entry.id = Uuid::random().text();
  entry.kind = ChatEntryKind::user;
  entry.text = text;
  entry.attachments = attachments;
  entry.createdAt = main_.now();
  ThreadExecutionRuntime& execution = executions_.execution(key);
  execution.turnEntryID = entry.id;
  execution.runLostWithClient.reset();
  tree_.appendEntry(std::move(entry), key);

  const bool clientWasReady = execution.connectionState == ConnectionState::ready();
  execution.connectionState = ConnectionState::connecting();
  executions_.publishExecutionIfSelected(key);
  main_.post(weakly(this, [text = std::move(text), attachments = std::move(attachments), key,
                           clientWasReady, stopCount = execution.stopCount](TaskDriver& self) {
    self.beginTurn(text, attachments, key, clientWasReady, stopCount);
  }));
}

void TaskDriver::beginTurn(const std::string& text, const std::vector<ChatAttachment>& attachments,
                           const ThreadExecutionKey& key, bool clientWasReady, int stopCount) {
  const auto wasStopped = [key, stopCount](TaskDriver& self) {
    const auto* execution = self.executions_.find(key);
    return !self.tree_.thread(key) || !execution || execution->stopCount != stopCount;
  };
  if (wasStopped(*this)) return;
  const auto startRun = weakly(this, [=](TaskDriver& self) {
    // Checkpoint and hooks may have taken a while.
    if (wasStopped(self)) return;
    const Uuid runID = self.tree_.beginRun(text, key);
    self.executions_.execution(key).activeRunID = runID;
    Turn turn{key, runID, {}, {}, clientWasReady};
    self.context_.projectContextPrompt(
        key, weakly(&self, [turn, text, attachments, mode = self.settings_.workflowMode()](
                               TaskDriver& driver, const std::string& block) mutable {
          // Reading the project's guidance may have taken a while.
          if (!driver.isLive(turn)) return;
          turn.originalPrompt = assemblePrompt(text, attachments, mode, block);
          driver.routePrompt(std::move(turn));
        }));
  });
  const auto runHooks = weakly(this, [key, startRun](TaskDriver& self) {
    self.hooks_.runProjectHooks(ProjectHookEvent::beforeTask, key, startRun);
  });
  ports_.captureCheckpoint(
      key, fmt::format("Before: {}", text::firstCharacters(text, checkpointLabelLength)),
      WorkspaceCheckpointKind::automatic, runHooks);
}

// ---- to a provider ------------------------------------------------------------------------------

/// Whether the run is still the one that the conversation is at: it may have been stopped, or have
/// gone with its conversation, during a wait.
bool TaskDriver::isLive(const Turn& turn) const {
  const auto* execution = executions_.find(turn.key);
  return tree_.thread(turn.key) && execution && execution->activeRunID == turn.runID;
}

void TaskDriver::routePrompt(const Turn& turn) {
  router_.findOutForNextTurn(turn.attempted, turn.key, weakly(this, [turn](TaskDriver& self) {
                               if (self.isLive(turn)) self.takeRoute(turn);
                             }));
}

void TaskDriver::takeRoute(Turn turn) {
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

void TaskDriver::switchProvider(Turn turn, AgentProvider from, AgentProvider to) {
  buildCapsule(turn, from, to, [turn, from, to](TaskDriver& self, std::string capsule) mutable {
    self.tree_.appendSystemEntry(
        fmt::format("Switched this task from {} to {} with visible context attached.",
                    shortLabel(from), shortLabel(to)),
        turn.key);
    self.deliver(std::move(capsule), std::move(turn), to);
  });
}

void TaskDriver::buildCapsule(const Turn& turn, AgentProvider from, AgentProvider to,
                              std::function<void(TaskDriver&, std::string)> then) {
  const auto path = tree_.executionPath(turn.key);
  if (!path) return;
  ports_.repositoryState(
      *path, weakly(this, [turn, from, to, path = *path, then = std::move(then)](
                              TaskDriver& self, const std::string& repositoryState) {
        self.context_.projectContextPrompt(
            turn.key, weakly(&self, [turn, from, to, path, then, repositoryState](
                                        TaskDriver& driver, const std::string& context) {
              // Reading both takes a while: the turn may have been stopped meanwhile.
              if (!driver.isLive(turn)) return;
              then(driver,
                   HandoffCapsule::build(
                       {from, to, turn.originalPrompt, driver.tree_.thread(turn.key)->entries,
                        *driver.executions_.find(turn.key)->plan, path, repositoryState, context}));
            }));
      }));
}

void TaskDriver::deliver(std::string prompt, Turn turn, AgentProvider provider) {
  turn.attempted.insert(provider);
  const ThreadExecutionRuntime& execution = executions_.execution(turn.key);
  const bool isKept =
      execution.client && execution.client->provider() == provider && turn.clientWasReady;
  if (!isKept) return startAndSend(std::move(prompt), std::move(turn), provider);
  if (execution.unansweredPrompts == 0) return performSend(prompt, turn, provider);
  sendBehindStoppedTurn(std::move(prompt), std::move(turn), provider);
}

void TaskDriver::startAndSend(std::string prompt, Turn turn, AgentProvider provider) {
  const auto key = turn.key;
  const auto runID = turn.runID;
  starter_.startClient(
      provider, key, runID,
      weakly(this, [prompt = std::move(prompt), turn = std::move(turn),
                    provider](TaskDriver& self) { self.performSend(prompt, turn, provider); }));
}

// A turn that was stopped ends when its runtime says so, and a runtime works on one prompt at a
// time: Claude Code refuses a second one, and Codex takes it into the turn that is being stopped.
void TaskDriver::sendBehindStoppedTurn(std::string prompt, Turn turn, AgentProvider provider) {
  const auto key = turn.key;
  ThreadExecutionRuntime& execution = executions_.execution(key);
  execution.stoppedTurnEnded = weakly(this, [prompt = std::move(prompt), turn = std::move(turn),
                                             provider](TaskDriver& self, bool isClientUsable) {
    if (!self.isLive(turn)) return;
    self.executions_.execution(turn.key).connectTimer.cancel();
    if (isClientUsable) return self.performSend(prompt, turn, provider);
    self.startAndSend(prompt, turn, provider);
  });
  execution.connectTimer = main_.after(stopPatience, weakly(this, [key](TaskDriver& self) {
                                         if (auto* waiting = self.executions_.find(key)) {
                                           waiting->tellStoppedTurnEnded(false);
                                         }
                                       }));
}

void TaskDriver::performSend(const std::string& prompt, const Turn& turn, AgentProvider provider) {
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
      prompt, weakly(this, [weakClient, turn, provider](TaskDriver& self, PromptResult result) {
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
          self.turnCompleted(turn, provider);
        } else {
          self.turnFailed(result.error(), turn, provider);
        }
      }));
}

// ---- the ways out -------------------------------------------------------------------------------

void TaskDriver::turnCompleted(const Turn& turn, AgentProvider provider) {
  ThreadExecutionRuntime& execution = executions_.execution(turn.key);
  const Date now = main_.now();
  const std::string text = fmt::format("{} finished the task.", shortLabel(provider));
  execution.connectionState = ConnectionState::ready();
  execution.lastActivityAt = now;
  execution.stallWarningSent = false;
  execution.activeRunID.reset();
  tree_.updateRun(turn.runID, turn.key, [&](RunRecord& run) {
    run.status = RunRecordStatus::completed;
    run.statusMessage = text;
    run.lastActivityAt = now;
    run.completedAt = now;
  });
  if (selection_.key() == turn.key) git_.refreshGitSnapshot();
  executions_.publishExecutionIfSelected(turn.key);
  ports_.sendRemoteTaskEvent("completed", text, turn.key);
  main_.post(weakly(this, [key = turn.key](TaskDriver& self) {
    self.hooks_.runProjectHooks(ProjectHookEvent::afterTask, key, [] {});
  }));
  ports_.runNextQueuedPrompt(turn.key);
}

void TaskDriver::turnFailed(const AgentError& error, const Turn& turn, AgentProvider provider) {
  if (!isUsageLimitFailure(error)) return fail(error, turn, provider);
  usage_.markExhausted(provider);
  if (!router_.allowsAutomaticHandoff()) return fail(error, turn, provider);
  const auto isDecided = std::make_shared<bool>(false);
  router_.findOutForHandoff(provider, turn.attempted, turn.key,
                            weakly(this, [error, turn, provider, isDecided](TaskDriver& self) {
                              *isDecided = true;
                              if (!self.isLive(turn)) return;
                              const auto next = self.router_.nextAutomaticProvider(
                                  provider, turn.attempted, turn.key);
                              if (next) return self.handOff(turn, provider, *next);
                              self.fail(error, turn, provider);
                            }));
  // A runtime that ends after its last word must not end the turn while somebody else is looked
  // for.
  const auto& client = executions_.execution(turn.key).client;
  if (!*isDecided && client) client->onUnexpectedTermination = nullptr;
}

void TaskDriver::fail(const AgentError& error, const Turn& turn, AgentProvider provider) {
  if (error.isDisconnection()) executions_.execution(turn.key).runLostWithClient = turn.runID;
  const std::string& description = error.localizedDescription();
  failures_.fail(turn.key, turn.runID,
                 {.description = description,
                  .text = failures_.advice(description, provider),
                  .entry = fmt::format("Error from {}: {}", shortLabel(provider), description)});
  main_.post(weakly(this, [key = turn.key](TaskDriver& self) {
    self.hooks_.runProjectHooks(ProjectHookEvent::taskFailed, key, [] {});
  }));
}

void TaskDriver::handOff(Turn turn, AgentProvider from, AgentProvider to) {
  // What the old client still says is no part of the turn any more.
  ThreadExecutionRuntime& execution = executions_.execution(turn.key);
  execution.endClient();
  endOpenTools(execution, turn.key, tree_);
  buildCapsule(turn, from, to, [turn, from, to](TaskDriver& self, std::string capsule) mutable {
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

void TaskDriver::stopWorking() {
  const auto key = selection_.key();
  ThreadExecutionRuntime* execution = key ? executions_.find(*key) : nullptr;
  if (!execution) return;
  ++execution->stopCount;
  if (execution->connectionState == ConnectionState::connecting()) {
    execution->endClient();
  } else if (execution->client) {
    execution->client->cancel();
  }
  execution->permissionRequest = nullptr;
  execution->connectionState = ConnectionState::ready();
  tree_.updateRun(std::exchange(execution->activeRunID, std::nullopt), *key, [&](RunRecord& run) {
    run.status = RunRecordStatus::cancelled;
    run.statusMessage = "Stopped by you.";
    run.completedAt = main_.now();
  });
  tree_.appendSystemEntry("Stopped by you.", *key);
  executions_.publishExecutionIfSelected(*key);
}

}  // namespace vantrell
