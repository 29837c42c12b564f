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
  return Transcript(std::vector<ChatEntry>(entries.begin(),
                                           entries.begin() + static_cast<std::ptrdiff_t>(count)));
}

std::string comparisonTitle(std::string_view title, AgentProvider provider) {
  while (title.ends_with(forkSuffix)) title.remove_suffix(forkSuffix.size());
  return fmt::format("{} · {}", title, shortLabel(provider));
}

}  // namespace

TaskBranches::TaskBranches(EngineCore& core, WorkspaceOperations& operations, Router& router,
                           Composer& driver, TaskSafety& safety)
    : main_(core.main),
      tree_(core.tree),
      selection_(core.selection),
      executions_(core.executions),
      changes_(core.changes),
      operations_(operations),
      router_(router),
      driver_(driver),
      safety_(safety) {}

/// What every new conversation takes along. Sessions, queue, runs, draft and worktree belong to the
/// source alone.
ChatThread TaskBranches::offshoot(const ChatThread& source, std::string_view suffix) const {
  ChatThread thread = ChatThread::make(fmt::format("{}{}", source.title, suffix), main_.now());
  thread.lastProvider = source.lastProvider;
  thread.providerModelIDs = source.providerModelIDs;
  thread.providerEfforts = source.providerEfforts;
  thread.preferredProvider = source.preferredProvider;
  return thread;
}

// ---- forks --------------------------------------------------------------------------------------

std::optional<Uuid> TaskBranches::forkThread(const Uuid& threadID, const Uuid& workspaceID,
                                             const std::optional<std::string>& throughEntryID,
                                             bool select) {
  const ThreadExecutionKey key{workspaceID, threadID};
  const ChatThread* source = tree_.thread(key);
  if (!source) return std::nullopt;
  ChatThread fork = offshoot(*source, forkSuffix);
  fork.checkpoints = source->checkpoints;
  const Transcript& entries = source->entries;
  const auto last = throughEntryID ? entries.indexOf(*throughEntryID) : std::nullopt;
  fork.entries = firstEntries(entries, last ? *last + 1 : entries.size());
  const Uuid id = fork.id;
  tree_.addThread(std::move(fork), key.workspaceID);
  if (select) operations_.selectThread(id, key.workspaceID);
  if (select) {
    changes_.announce({.kind = Change::Kind::composerWanted,
                       .conversation = ThreadExecutionKey{key.workspaceID, id}});
  }
  return id;
}

// ---- branches -----------------------------------------------------------------------------------

void TaskBranches::branchAndSend(std::string_view fromEntryID, std::string_view prompt,
                                 std::optional<AgentProvider> provider) {
  std::string text(text::trimmed(prompt));
  const auto key = selection_.key();
  const ChatThread* source = key ? tree_.thread(*key) : nullptr;
  if (text.empty() || !source) return;
  const Transcript& entries = source->entries;
  auto place = entries.indexOf(fromEntryID);
  while (place && entries[*place].kind != ChatEntryKind::user) {
    place = *place == 0 ? std::nullopt : std::optional(*place - 1);
  }
  if (!place) return;

  ChatThread branch = offshoot(*source, branchSuffix);
  branch.entries = firstEntries(entries, *place);
  if (provider) branch.preferredProvider = provider;
  const ThreadExecutionKey branchKey{key->workspaceID, branch.id};
  Unsent unsent{.prompt = std::move(text), .attachments = entries[*place].attachments};
  tree_.addThread(std::move(branch), key->workspaceID);
  operations_.selectThread(branchKey.threadID, branchKey.workspaceID);
  prepare(branchKey, std::move(unsent));
}

void TaskBranches::retry(std::optional<AgentProvider> provider) {
  const auto key = selection_.key();
  const ChatThread* source = key ? tree_.thread(*key) : nullptr;
  if (!source) return;
  const Transcript& entries = source->entries;
  for (std::size_t i = entries.size(); i > 0; --i) {
    const ChatEntry& entry = entries[i - 1];
    if (entry.kind == ChatEntryKind::user) {
      // A copy: the tree grows while the branch is made.
      return branchAndSend(std::string(entry.id), std::string(entry.text), provider);
    }
  }
}

// ---- comparisons --------------------------------------------------------------------------------

void TaskBranches::compareNextPrompt(std::string_view prompt,
                                     const std::vector<AgentProvider>& providers) {
  const std::string text(text::trimmed(prompt));
  const auto source = selection_.key();
  if (text.empty() || !source || !tree_.thread(*source)) return;
  std::vector<AgentProvider> candidates;
  for (const auto provider : providers) {
    const bool isNew = std::ranges::find(candidates, provider) == candidates.end();
    if (candidates.size() < compared && isNew && router_.providerAvailable(provider)) {
      candidates.push_back(provider);
    }
  }
  if (candidates.size() < compared) {
    return executions_.showError("Choose two available providers to compare.");
  }
  const Uuid group = Uuid::random();
  std::vector<ThreadExecutionKey> forks;
  for (const auto provider : candidates) {
    const auto id = forkThread(source->threadID, source->workspaceID, std::nullopt, false);
    if (!id) return;
    forks.push_back({source->workspaceID, *id});
    tree_.updateThread(forks.back(), [&](ChatThread& fork) {
      fork.title = comparisonTitle(tree_.thread(*source)->title, provider);
      fork.preferredProvider = provider;
      fork.comparisonGroupID = group;
    });
  }
  operations_.selectThread(forks.front().threadID, forks.front().workspaceID);
  for (const auto& fork : forks) prepare(fork, {.prompt = text, .needsWorktree = true});
}

// ---- to the driver ------------------------------------------------------------------------------

void TaskBranches::prepare(const ThreadExecutionKey& key, Unsent unsent) {
  whyShared_.reset();
  executions_.execution(key);  // where a stop is noticed that comes before the prompt
  unsent_.insert_or_assign(key, std::move(unsent));
  safety_.createIsolatedWorktree(key, weakly(this, [key](TaskBranches& self, const auto& worktree) {
                                   self.prepared(key, worktree);
                                 }));
}

void TaskBranches::prepared(const ThreadExecutionKey& key,
                            TaskSafetyResult<TaskSafetyService::Worktree> worktree) {
  auto node = unsent_.extract(key);
  if (node.empty()) return;
  Unsent unsent = std::move(node.mapped());
  if (!tree_.thread(key)) return keepForUser(key, std::move(unsent));
  const auto* execution = executions_.find(key);
  const bool wasStopped = execution && execution->stopCount > 0;
  if (worktree) safety_.moveToWorktree(key, std::move(*worktree));
  if (wasStopped) return keepForUser(key, std::move(unsent));
  if (worktree || !unsent.needsWorktree) {
    if (!worktree) whyShared_ = worktree.error().description();
    return driver_.sendNow(std::move(unsent.prompt), std::move(unsent.attachments), key);
  }
  tree_.appendSystemEntry(fmt::format("Could not create a safe comparison worktree: {}",
                                      worktree.error().description()),
                          key);
  executions_.publishExecutionIfSelected(key);
}

void TaskBranches::keepForUser(const ThreadExecutionKey& begun, Unsent unsent) {
  // The user may have moved it to another project, which the worktree is not of.
  const auto owner = std::ranges::find_if(tree_.workspaces(), [&](const Workspace& each) {
    return each.thread(begun.threadID) != nullptr;
  });
  if (owner == tree_.workspaces().end()) return;
  const ThreadExecutionKey key{owner->id, begun.threadID};
  tree_.updateThread(key, [&](ChatThread& thread) {
    if (thread.draftText) {
      // Newer words of the user stand there: it waits where the user finds it, too.
      thread.queuedPrompts.insert(thread.queuedPrompts.begin(),
                                  QueuedPrompt{Uuid::random(), std::move(unsent.prompt),
                                               std::move(unsent.attachments), main_.now()});
      return;
    }
    thread.draftText = std::move(unsent.prompt);
    thread.draftAttachments = std::move(unsent.attachments);
  });
  executions_.publishExecutionIfSelected(key);
}

void TaskBranches::keepUnsent() {
  for (auto& [key, unsent] : std::exchange(unsent_, {})) keepForUser(key, std::move(unsent));
}

}  // namespace vantrell
