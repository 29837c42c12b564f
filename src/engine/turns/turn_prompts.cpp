#include "engine/turns/turn_prompts.h"

#include <fmt/format.h>

#include "engine/turns/handoff_capsule.h"
#include "engine/turns/prompt_assembly.h"
#include "platform/queues/weakly.h"

namespace vantrell {

void TurnPrompts::assemble(const ThreadExecutionKey& key, std::string text,
                           std::vector<ChatAttachment> attachments, Then then) {
  core_.context.projectContextPrompt(
      key,
      [text = std::move(text), attachments = std::move(attachments),
       mode = core_.settings.workflowMode(), then = std::move(then)](const std::string& context) {
        then(assemblePrompt(text, attachments, mode, context));
      });
}

void TurnPrompts::forFirstProvider(const Turn& turn, AgentProvider provider, Then then) {
  // Whether a capsule is needed, and what stands in it, is read from the transcript.
  core_.tree.loadTranscript(
      turn.key, weakly(this, [turn, provider, then = std::move(then)](TurnPrompts& self) mutable {
        const ChatThread* thread = self.core_.tree.thread(turn.key);
        if (!thread || !self.core_.executions.find(turn.key)) return;
        if (!self.needsCapsule(turn, provider)) return then(turn.originalPrompt);
        const AgentProvider from = thread->lastProvider.value_or(provider);
        self.capsule(
            turn, from, provider,
            weakly(&self, [turn, from, provider, then = std::move(then)](TurnPrompts& prompts,
                                                                         std::string capsule) {
              if (from != provider) {
                prompts.core_.tree.appendSystemEntry(
                    fmt::format("Switched this task from {} to {} with visible context attached.",
                                shortLabel(from), shortLabel(provider)),
                    turn.key);
              }
              then(std::move(capsule));
            }));
      }));
}

/// The turn goes to another provider than the last one; or the conversation has work of an agent,
/// but the provider has no session in which it is: after a fork, a branch, a restore, a move to
/// another folder.
bool TurnPrompts::needsCapsule(const Turn& turn, AgentProvider provider) const {
  const ChatThread* thread = core_.tree.thread(turn.key);
  if (thread->lastProvider && *thread->lastProvider != provider) return true;
  const auto* execution = core_.executions.find(turn.key);
  if (thread->sessionID(provider) || execution->session->isServedBy(provider)) return false;
  return std::ranges::any_of(thread->entries, [](const ChatEntry& entry) {
    return entry.provider && entry.kind != ChatEntryKind::thought;
  });
}

void TurnPrompts::capsule(const Turn& turn, AgentProvider from, AgentProvider to, Then then) {
  const auto path = core_.tree.executionPath(turn.key);
  if (!path) return;
  core_.project.repositoryState(
      *path, weakly(this, [turn, from, to, path = *path, then = std::move(then)](
                              TurnPrompts& self, const std::string& repositoryState) {
        self.core_.context.projectContextPrompt(
            turn.key, weakly(&self, [turn, from, to, path, then, repositoryState](
                                        TurnPrompts& prompts, const std::string& context) {
              const auto* execution = prompts.core_.executions.find(turn.key);
              // The turn may have been stopped meanwhile.
              if (!execution || execution->activeRunID != turn.runID) return;
              then(HandoffCapsule::build({from, to, turn.originalPrompt,
                                          prompts.core_.tree.thread(turn.key)->entries,
                                          *execution->plan, path, repositoryState, context}));
            }));
      }));
}

}  // namespace vantrell
