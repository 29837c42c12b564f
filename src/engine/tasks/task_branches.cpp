#include "engine/tasks/task_branches.h"

#include <algorithm>
#include <fmt/format.h>
#include <utility>

#include "platform/queues/weakly.h"
#include "platform/text/text.h"
#include "runtimes/catalog/provider_registry.h"

namespace vantrell {

namespace {

constexpr std::string_view forkSuffix = " — fork";
constexpr std::string_view branchSuffix = " — branch";
constexpr std::size_t compared = 2;

Transcript firstEntries(const Transcript& entries, std::size_t count) {
  std::vector<ChatEntry> copied(entries.begin(),
                                entries.begin() + static_cast<std::ptrdiff_t>(count));
  for (auto& entry : copied) {
    // No client will ever tell here how a tool ended that is under way in the source.
    const bool isOpenTool =
        entry.kind == ChatEntryKind::tool && entry.status && isOpenToolStatus(*entry.status);
    if (isOpenTool) entry.status = "failed";
  }
  return Transcript(std::move(copied));
}

std::string comparisonTitle(std::string_view title, AgentProvider provider) {
  while (title.ends_with(forkSuffix)) title.remove_suffix(forkSuffix.size());
  return fmt::format("{} · {}", title, shortLabel(provider));
}

}  // namespace

/// What every new conversation takes along. Sessions, queue, runs, draft and worktree belong to the
/// source alone.
ChatThread TaskBranches::offshoot(const ChatThread& source, std::string_view suffix) const {
  ChatThread thread = ChatThread::make(fmt::format("{}{}", source.title, suffix), core_.main.now());
  thread.lastProvider = source.lastProvider;
  thread.providerModelIDs = source.providerModelIDs;
  thread.providerEfforts = source.providerEfforts;
  thread.preferredProvider = source.preferredProvider;
  return thread;
}

// ---- forks --------------------------------------------------------------------------------------

Result<ThreadExecutionKey> TaskBranches::forkThread(
    const ThreadExecutionKey& source, const std::optional<std::string>& throughEntryID) {
  const ChatThread* thread = core_.tree.thread(source);
  if (!thread) return refuseMissingConversation();
  ChatThread fork = offshoot(*thread, forkSuffix);
  fork.checkpoints = thread->checkpoints;
  const std::size_t count = thread->entries.size();
  const ThreadExecutionKey key{source.workspaceID, fork.id};
  core_.tree.addThread(std::move(fork), key.workspaceID);
  unfilled_[key];
  core_.tree.whenRead(source, weakly(this, [key, count, throughEntryID](
                                               TaskBranches& self, const ThreadExecutionKey& read) {
                        self.fill(key, read, count, throughEntryID);
                      }));
  return key;
}

void TaskBranches::fill(const ThreadExecutionKey& fork, const ThreadExecutionKey& source,
                        std::size_t count, const std::optional<std::string>& throughEntryID) {
  auto node = unfilled_.extract(fork);
  const auto key = present(fork);
  if (!key) return;
  const Transcript& entries = core_.tree.thread(source)->entries;
  const auto last = throughEntryID ? entries.indexOf(*throughEntryID) : std::nullopt;
  Transcript copied = firstEntries(entries, last ? *last + 1 : std::min(count, entries.size()));
  for (const auto& own : core_.tree.thread(*key)->entries) copied.append(own);
  if (!copied.empty()) core_.tree.replaceTranscript(std::move(copied), *key);
  if (!node.empty() && node.mapped()) return prepare(*key, *std::move(node.mapped()));
  if (core_.tree.thread(*key)->queuedPrompts.empty()) return;
  core_.main.post(weakly(this, [key = *key](TaskBranches& self) {
    static_cast<void>(self.core_.composer.runNextQueuedPrompt(key));
  }));
}

// ---- branches -----------------------------------------------------------------------------------

Result<ThreadExecutionKey> TaskBranches::branchAndSend(const ThreadExecutionKey& source,
                                                       std::string_view fromEntryID,
                                                       std::string_view prompt,
                                                       std::optional<AgentProvider> provider) {
  std::string text(text::trimmed(prompt));
  if (!core_.tree.thread(source)) return refuseMissingConversation();
  if (text.empty()) return refuse("Type a prompt first.");
  return branch(source, {.entryID = std::string(fromEntryID), .words = std::move(text)}, provider);
}

Result<ThreadExecutionKey> TaskBranches::retry(const ThreadExecutionKey& source,
                                               std::optional<AgentProvider> provider) {
  if (!core_.tree.thread(source)) return refuseMissingConversation();
  return branch(source, {}, provider);
}

Result<ThreadExecutionKey> TaskBranches::branch(const ThreadExecutionKey& source, BranchPoint point,
                                                std::optional<AgentProvider> provider) {
  const ChatThread* thread = core_.tree.thread(source);
  const bool isRead = thread->entries.isRead();
  const auto place = isRead ? promptAt(thread->entries, point) : std::nullopt;
  if (isRead && !place) return refuse(std::string(noPrompt(point)));
  ChatThread branch = offshoot(*thread, branchSuffix);
  if (provider) branch.preferredProvider = provider;
  const ThreadExecutionKey key{source.workspaceID, branch.id};
  if (place) {
    Unsent unsent = unsentAt(thread->entries, *place, std::move(point));
    branch.entries = firstEntries(thread->entries, *place);
    core_.tree.addThread(std::move(branch), key.workspaceID);
    prepare(key, std::move(unsent));
    return key;
  }
  core_.tree.addThread(std::move(branch), key.workspaceID);
  unfilled_[key] = point.words ? std::optional(Unsent{.prompt = *point.words}) : std::nullopt;
  core_.tree.whenRead(
      source, weakly(this, [key, point](TaskBranches& self, const ThreadExecutionKey& read) {
        self.fillBranch(key, read, point);
      }));
  return key;
}

void TaskBranches::fillBranch(const ThreadExecutionKey& branch, const ThreadExecutionKey& source,
                              const BranchPoint& point) {
  auto node = unfilled_.extract(branch);
  const auto key = present(branch);
  if (!key) return;
  const Transcript& entries = core_.tree.thread(source)->entries;
  const auto place = promptAt(entries, point);
  if (!place) {
    core_.tree.appendSystemEntry(std::string(noPrompt(point)), *key);
    if (!node.empty() && node.mapped()) keepForUser(*key, *std::move(node.mapped()));
    return;
  }
  Unsent unsent = unsentAt(entries, *place, point);
  Transcript copied = firstEntries(entries, *place);
  if (!copied.empty()) core_.tree.replaceTranscript(std::move(copied), *key);
  prepare(*key, std::move(unsent));
}

/// The place of the user's entry that is to be replaced.
std::optional<std::size_t> TaskBranches::promptAt(const Transcript& entries,
                                                  const BranchPoint& point) {
  std::size_t end = entries.size();
  if (point.entryID) {
    const auto found = entries.indexOf(*point.entryID);
    end = found ? *found + 1 : 0;
  }
  while (end > 0 && entries[end - 1].kind != ChatEntryKind::user) --end;
  if (end == 0) return std::nullopt;
  return end - 1;
}

TaskBranches::Unsent TaskBranches::unsentAt(const Transcript& entries, std::size_t place,
                                            BranchPoint point) {
  const ChatEntry& entry = entries[place];
  return {.prompt = point.words ? *std::move(point.words) : std::string(text::trimmed(entry.text)),
          .attachments = entry.attachments};
}

std::string_view TaskBranches::noPrompt(const BranchPoint& point) {
  return point.entryID ? "There is no prompt to branch from." : "There is no prompt to try again.";
}

// ---- comparisons --------------------------------------------------------------------------------

Result<std::vector<ThreadExecutionKey>> TaskBranches::compareNextPrompt(
    const ThreadExecutionKey& source, std::string_view prompt,
    const std::vector<AgentProvider>& providers) {
  const std::string text(text::trimmed(prompt));
  if (!core_.tree.thread(source)) return refuseMissingConversation();
  if (text.empty()) return refuse("Type a prompt first.");
  std::vector<AgentProvider> candidates;
  for (const auto provider : providers) {
    const bool isNew = std::ranges::find(candidates, provider) == candidates.end();
    if (candidates.size() < compared && isNew && core_.router.providerAvailable(provider)) {
      candidates.push_back(provider);
    }
  }
  if (candidates.size() < compared) return refuse("Choose two available providers to compare.");
  core_.tree.updateThreadTitleIfNeeded(text, source);  // both are named after it
  const Uuid group = Uuid::random();
  std::vector<ThreadExecutionKey> forks;
  for (const auto provider : candidates) {
    const auto fork = forkThread(source, std::nullopt);
    if (!fork) return std::unexpected(fork.error());
    forks.push_back(*fork);
    core_.tree.updateThread(*fork, [&](ChatThread& thread) {
      thread.title = comparisonTitle(core_.tree.thread(source)->title, provider);
      thread.preferredProvider = provider;
      thread.comparisonGroupID = group;
    });
  }
  for (const auto& fork : forks) {
    Unsent unsent{.prompt = text, .needsWorktree = true};
    if (unfilled_.contains(fork)) {
      unfilled_[fork] = std::move(unsent);
    } else {
      prepare(fork, std::move(unsent));
    }
  }
  return forks;
}

// ---- to the composer ----------------------------------------------------------------------------

void TaskBranches::prepare(const ThreadExecutionKey& key, Unsent unsent) {
  // Where a stop is noticed that comes before the prompt.
  unsent.stopCount = core_.executions.execution(key).stopCount;
  unsent_.insert_or_assign(key, std::move(unsent));
  core_.safety.createIsolatedWorktree(key,
                                      weakly(this, [key](TaskBranches& self, const auto& worktree) {
                                        self.prepared(key, worktree);
                                      }));
}

void TaskBranches::prepared(const ThreadExecutionKey& key,
                            TaskSafetyResult<TaskSafetyService::Worktree> worktree) {
  auto node = unsent_.extract(key);
  if (node.empty()) return;
  Unsent unsent = std::move(node.mapped());
  if (!core_.tree.thread(key)) return keepForUser(key, std::move(unsent));
  const auto* execution = core_.executions.find(key);
  const bool wasStopped = execution && execution->stopCount != unsent.stopCount;
  if (worktree) core_.safety.moveToWorktree(key, std::move(*worktree));
  if (wasStopped) return keepForUser(key, std::move(unsent));
  if (worktree || !unsent.needsWorktree) {
    if (!worktree) {
      const auto& why = whyShared_[key] = worktree.error().description();
      if (worktree.error().kind != TaskSafetyError::Case::notRepository) {
        core_.tree.appendSystemEntry(
            fmt::format("This branch works in the project's own folder: {}", why), key);
      }
    }
    static_cast<void>(
        core_.composer.sendNow(std::move(unsent.prompt), std::move(unsent.attachments), key));
    return;
  }
  core_.tree.appendSystemEntry(fmt::format("Could not create a safe comparison worktree: {}",
                                           worktree.error().description()),
                               key);
}

std::optional<std::string> TaskBranches::whyShared(const ThreadExecutionKey& branch) const {
  const auto found = whyShared_.find(branch);
  return found == whyShared_.end() ? std::nullopt : std::optional(found->second);
}

/// The user may have moved it to another project, which the worktree is not of.
std::optional<ThreadExecutionKey> TaskBranches::present(const ThreadExecutionKey& begun) const {
  const auto owner = std::ranges::find_if(core_.tree.workspaces(), [&](const Workspace& each) {
    return each.thread(begun.threadID) != nullptr;
  });
  if (owner == core_.tree.workspaces().end()) return std::nullopt;
  return ThreadExecutionKey{owner->id, begun.threadID};
}

void TaskBranches::keepForUser(const ThreadExecutionKey& begun, Unsent unsent) {
  const auto key = present(begun);
  if (!key) return;
  core_.tree.updateThread(*key, [&](ChatThread& thread) {
    if (thread.draftText) {
      // Newer words of the user stand there: it waits where the user finds it, too.
      thread.queuedPrompts.insert(thread.queuedPrompts.begin(),
                                  QueuedPrompt{Uuid::random(), std::move(unsent.prompt),
                                               std::move(unsent.attachments), core_.main.now()});
      return;
    }
    thread.draftText = std::move(unsent.prompt);
    thread.draftAttachments = std::move(unsent.attachments);
  });
}

void TaskBranches::keepUnsent() {
  for (auto& [key, unsent] : std::exchange(unsent_, {})) keepForUser(key, std::move(unsent));
  for (auto& [key, unsent] : unfilled_) {
    if (unsent) keepForUser(key, *std::exchange(unsent, std::nullopt));
  }
}

}  // namespace vantrell
