#include "engine/projects/task_safety.h"

#include <algorithm>
#include <fmt/format.h>
#include <utility>

#include "platform/queues/weakly.h"
#include "project/folder_identity.h"
#include "runtimes/catalog/provider_table.h"

namespace vantrell {

namespace {

constexpr std::size_t keptCheckpoints = 50;  // of one task, in its list

std::unexpected<Refusal> refusal(std::string_view what, const TaskSafetyError& error) {
  std::string text = fmt::format("Could not {}: {}", what, error.description());
  if (error.mayHaveChangedFiles) {
    text +=
        " Some files may have been put back already. The checkpoint \"Before rewind\", taken just "
        "now, has everything as it was before: restore that one to go back.";
  }
  return refuse(std::move(text));
}

}  // namespace

TaskSafety::TaskSafety(Dependencies dependencies)
    : main_(dependencies.main),
      tree_(dependencies.tree),
      executions_(dependencies.executions),
      runs_(dependencies.runs),
      git_(dependencies.git),
      changes_(dependencies.changes),
      background_(dependencies.background),
      service_(std::move(dependencies.supportFolder)) {}

// ---- the background -----------------------------------------------------------------------------

void TaskSafety::inBackground(const std::string& repository, Work work, Turn turn) {
  auto& queue = waiting_[repository];
  const bool isNext = turn == Turn::next && !queue.empty();
  queue.insert(isNext ? queue.begin() + 1 : queue.end(), std::move(work));
  if (queue.size() == 1) background_->post(std::exchange(queue.front(), nullptr));
}

void TaskSafety::runNext(const std::string& repository) {
  auto& queue = waiting_[repository];
  queue.pop_front();
  if (queue.empty()) {
    waiting_.erase(repository);
  } else {
    background_->post(std::exchange(queue.front(), nullptr));
  }
}

template <typename Answer>
void TaskSafety::ask(const std::string& folder, std::function<Answer()> work,
                     std::function<void(TaskSafety&, Answer)> reply, Turn turn) {
  if (!background_) {
    return main_.post(weakly(this, [reply = std::move(reply)](TaskSafety& self) {
      reply(self, std::unexpected(TaskSafetyError::notRepository()));
    }));
  }
  const std::weak_ptr weak = weak_from_this();
  const std::string repository = repositoryFolder(folder);
  inBackground(
      repository,
      [&main = main_, weak, repository, work = std::move(work), reply = std::move(reply)] {
        main.post([weak, repository, reply, answer = work()]() mutable {
          const auto self = weak.lock();
          if (!self) return;
          // First the reply: what it asks for may have to be next in this folder.
          reply(*self, std::move(answer));
          self->runNext(repository);
        });
      },
      turn);
}

// ---- checkpoints --------------------------------------------------------------------------------

void TaskSafety::captureCheckpoint(const ThreadExecutionKey& key, std::string label,
                                   WorkspaceCheckpointKind kind,
                                   std::function<void(Captured)> reply, WaitingFlag waiting) {
  const auto path = tree_.executionPath(key);
  const ChatThread* thread = tree_.thread(key);
  if (!path || !thread) return reply(std::unexpected(TaskSafetyError::invalidArchive()));
  TaskSafetyService::Request request{
      .workspaceID = key.workspaceID,
      .threadID = key.threadID,
      .workspacePath = *path,
      .label = std::move(label),
      .kind = kind,
      .entryCount = static_cast<std::int64_t>(thread->entries.size()),
      .sourceMessageID = std::nullopt,
      .now = main_.now()};
  if (!thread->entries.empty()) request.sourceMessageID = thread->entries.back().id;
  using Answer = TaskSafetyResult<TaskSafetyService::Captured>;
  ask<Answer>(
      *path,
      [service = service_, request, waiting = std::move(waiting)]() -> Answer {
        auto expected = Waiting::yes;
        if (waiting && !waiting->compare_exchange_strong(expected, Waiting::itsTurnHasCome)) {
          return std::unexpected(TaskSafetyError::commandFailed("called off"));
        }
        return service.captureCheckpoint(request);
      },
      [key, kind, reply = std::move(reply)](TaskSafety& self, Answer captured) {
        if (!captured) return reply(std::unexpected(captured.error()));
        self.tree_.updateThread(key, [&](ChatThread& each) {
          each.checkpoints.insert(each.checkpoints.begin(), captured->checkpoint);
          if (each.checkpoints.size() > keptCheckpoints) each.checkpoints.resize(keptCheckpoints);
        });
        if (kind == WorkspaceCheckpointKind::manual) self.notes_[key] = std::move(captured->notes);
        reply(std::move(captured->checkpoint));
      });
}

void TaskSafety::captureBeforePrompt(const ThreadExecutionKey& key, std::string label,
                                     std::function<void()> done) {
  const auto waiting = std::make_shared<std::atomic<Waiting>>(Waiting::yes);
  const auto limit = std::make_shared<Timer>();
  const auto path = tree_.executionPath(key);
  const std::string repository = path ? repositoryFolder(*path) : "";
  if (waiting_.contains(repository) && !isBeingRestored(repository)) {
    *limit = main_.after(TaskSafetyService::automaticTime,
                         weakly(this, [key, waiting, done](TaskSafety& self) {
                           auto expected = Waiting::yes;
                           if (!waiting->compare_exchange_strong(expected, Waiting::calledOff)) {
                             return;  // it has a limit of its own
                           }
                           self.sayWhyNone(key, "Other work in this folder took too long.");
                           done();
                         }));
  }
  captureCheckpoint(
      key, std::move(label), WorkspaceCheckpointKind::automatic,
      [weak = weak_from_this(), key, done, waiting, limit](const Captured& captured) {
        *limit = {};
        const auto self = weak.lock();
        if (!self || *waiting == Waiting::calledOff) return;
        using Case = TaskSafetyError::Case;
        if (!captured && captured.error().kind != Case::notRepository &&
            captured.error().kind != Case::invalidArchive) {
          self->sayWhyNone(key, captured.error().description());
        }
        done();
      },
      waiting);
}

void TaskSafety::sayWhyNone(const ThreadExecutionKey& key, const std::string& reason) {
  const ChatThread* thread = tree_.thread(key);
  if (!thread) return;
  const std::string text = fmt::format("{} {}", missingCheckpointText, reason);
  const bool isSaid = std::ranges::any_of(thread->entries, [&](const ChatEntry& entry) {
    return entry.kind == ChatEntryKind::system && entry.text == text;
  });
  if (!isSaid) tree_.appendSystemEntry(text, key);
}

void TaskSafety::createCheckpoint(const ThreadExecutionKey& key, std::string label, Done done) {
  if (auto begun = begin(key); !begun) return done(begun);
  captureCheckpoint(
      key, std::move(label), WorkspaceCheckpointKind::manual,
      [weak = weak_from_this(), key, done = std::move(done)](const Captured& captured) {
        const auto self = weak.lock();
        if (!self) return;
        if (captured) return self->end(key, done, {});
        self->end(key, done, refusal("create a checkpoint", captured.error()));
      });
}

// ---- going back ---------------------------------------------------------------------------------

/// What a task writes between the recovery checkpoint and the restore would be in neither.
bool TaskSafety::isAtWorkIn(const std::string& folder) {
  for (const auto& workspace : tree_.workspaces()) {
    for (const auto& thread : workspace.threads) {
      const auto* execution = executions_.find({workspace.id, thread.id});
      if (execution && execution->connectionState.isBusy() &&
          shareFiles(executionPath(workspace, thread), folder)) {
        return true;
      }
    }
  }
  return false;
}

void TaskSafety::restoreCheckpoint(const ThreadExecutionKey& key,
                                   const WorkspaceCheckpoint& checkpoint, Done done) {
  const auto path = tree_.executionPath(key);
  if (!path) return done(refuseMissingConversation());
  // A turn that is about to begin is as much in the way as one that works.
  if (executions_.isBusy(key)) {
    return done(refuse("Stop this task before you restore one of its checkpoints."));
  }
  if (isAtWorkIn(*path)) {
    return done(refusal("restore the checkpoint",
                        TaskSafetyError::commandFailed("Another task is at work in this folder.")));
  }
  if (auto begun = begin(key); !begun) return done(begun);
  working_[key] = repositoryFolder(*path);
  captureCheckpoint(
      key, "Before rewind", WorkspaceCheckpointKind::recovery,
      [weak = weak_from_this(), key, path = *path, checkpoint,
       done = std::move(done)](const Captured& recovery) {
        const auto self = weak.lock();
        if (!self) return;
        if (!recovery) {
          return self->end(key, done, refusal("restore the checkpoint", recovery.error()));
        }
        using Answer = TaskSafetyResult<SafetyNotes>;
        self->ask<Answer>(
            path,
            [service = self->service_, checkpoint, path, saved = *recovery] {
              return service.restore(checkpoint, path, &saved);
            },
            [key, path, checkpoint, saved = *recovery, done](TaskSafety& safety, Answer restored) {
              if (!restored) {
                if (restored.error().mayHaveChangedFiles) safety.git_.refreshGitSnapshot();
                return safety.end(key, done, refusal("restore the checkpoint", restored.error()));
              }
              safety.notes_[key] = std::move(*restored);
              // A task without its worktree works in the project, and so is restored there.
              const ChatThread* thread = safety.tree_.thread(key);
              if (thread && thread->workspaceMode == TaskWorkspaceMode::isolated &&
                  thread->isolatedWorkspacePath != path) {
                safety.notes_[key].push_back(
                    fmt::format("The task's worktree is gone: {} was restored.", path));
              }
              safety.restored(key, checkpoint, saved);
              safety.end(key, done, {});
            },
            // A prompt that waits here would begin to change what has just been saved.
            Turn::next);
      });
}

/// How many of the entries were there when the checkpoint was taken. What a runtime has played back
/// since may stand before the entry that was the last one then.
static std::size_t entriesAt(const WorkspaceCheckpoint& checkpoint, const ChatThread& thread) {
  const auto last = checkpoint.sourceMessageID ? thread.entries.indexOf(*checkpoint.sourceMessageID)
                                               : std::nullopt;
  if (last) return *last + 1;
  return static_cast<std::size_t>(std::max<std::int64_t>(checkpoint.conversationEntryCount, 0));
}

void TaskSafety::restored(const ThreadExecutionKey& key, const WorkspaceCheckpoint& checkpoint,
                          const WorkspaceCheckpoint& recovery) {
  const ChatThread* thread = tree_.thread(key);
  const std::size_t count = thread ? entriesAt(checkpoint, *thread) : 0;
  if (thread && count < thread->entries.size()) {
    // A prompt that was sent meanwhile is about what stands now.
    const std::size_t before = entriesAt(recovery, *thread);
    std::vector<ChatEntry> since;
    for (std::size_t i = std::max(count, before); i < thread->entries.size(); ++i) {
      since.push_back(thread->entries[i]);
    }
    tree_.truncateTranscript(count, key);
    for (auto& each : since) tree_.appendEntry(std::move(each), key);
  }
  // The agents' sessions know the turns that have just been undone: each provider begins a new one,
  // which gets the conversation as it stands now.
  tree_.updateThread(key, [&](ChatThread& each) {
    each.forgetSessions();
    each.updatedAt = main_.now();
  });
  runs_.endClient(key);  // a prompt that waits for the restore goes on
  git_.refreshGitSnapshot();
}

// ---- working apart ------------------------------------------------------------------------------

void TaskSafety::setTaskWorkspaceMode(const ThreadExecutionKey& key, TaskWorkspaceMode mode,
                                      Done done) {
  const ChatThread* thread = tree_.thread(key);
  if (!thread) return done(refuseMissingConversation());
  if (thread->workspaceMode == mode) return done({});
  if (mode == TaskWorkspaceMode::shared) {
    return done(refuse(
        "This task stays isolated so its changes cannot be lost. Open a new shared task, or merge "
        "the worktree from Terminal after reviewing its changes."));
  }
  if (auto begun = begin(key); !begun) return done(begun);
  createIsolatedWorktree(
      key, [weak = weak_from_this(), key, done = std::move(done)](auto worktree) {
        const auto self = weak.lock();
        if (!self) return;
        if (!worktree) return self->end(key, done, refusal("isolate this task", worktree.error()));
        self->moveToWorktree(key, std::move(*worktree));
        self->end(key, done, {});
      });
}

void TaskSafety::createIsolatedWorktree(const ThreadExecutionKey& key,
                                        std::function<void(TaskSafetyResult<Worktree>)> reply) {
  const Workspace* workspace = tree_.workspace(key.workspaceID);
  if (!workspace) return;
  using Answer = TaskSafetyResult<Worktree>;
  ask<Answer>(
      workspace->path,
      [service = service_, key, path = workspace->path] {
        return service.createIsolatedWorktree(key.workspaceID, key.threadID, path);
      },
      [reply = std::move(reply)](TaskSafety&, Answer worktree) { reply(std::move(worktree)); });
}

void TaskSafety::moveToWorktree(const ThreadExecutionKey& key, Worktree worktree) {
  if (!tree_.thread(key)) return;
  notes_[key] = std::move(worktree.notes);
  // The next prompt starts a client in the new folder; a turn that is on its way ends as well.
  runs_.resetConnection(key, "Stopped: the task moved to a worktree of its own.");
  tree_.updateThread(key, [&](ChatThread& thread) {
    thread.workspaceMode = TaskWorkspaceMode::isolated;
    thread.isolatedWorkspacePath = std::move(worktree.path);
    // Some runtimes go on working in the folder that a session was begun in: those begin a new one,
    // with the visible conversation attached.
    for (const auto provider : allAgentProviders) {
      if (providerFacts(provider).sessionsAreBoundToFolder) thread.forgetSessionID(provider);
    }
  });
  git_.refreshIfSelected(key);
}

// ---- one operation of a task at a time
// --------------------------------------------------------------------

Result<> TaskSafety::begin(const ThreadExecutionKey& key) {
  if (!tree_.thread(key)) return refuseMissingConversation();
  if (!working_.try_emplace(key).second) {
    return refuse("A checkpoint, restore or isolation of this task is under way; wait for it.");
  }
  notes_.erase(key);
  changes_.mark(topics::safety);
  return {};
}

void TaskSafety::end(const ThreadExecutionKey& key, const Done& done, Result<> result) {
  working_.erase(key);
  changes_.mark(topics::safety);
  done(std::move(result));
}

bool TaskSafety::isBeingRestored(const std::string& repository) const {
  return std::ranges::any_of(working_, [&](const auto& each) { return each.second == repository; });
}

const SafetyNotes& TaskSafety::notes(const ThreadExecutionKey& key) const {
  static const SafetyNotes none;
  const auto found = notes_.find(key);
  return found == notes_.end() ? none : found->second;
}

}  // namespace vantrell
