#include "engine/tasks/task_safety.h"

#include <algorithm>
#include <fmt/format.h>
#include <utility>

#include "platform/queues/weakly.h"

namespace vantrell {

namespace {

constexpr std::size_t keptCheckpoints = 50;  // of one task, in its list

}  // namespace

TaskSafety::TaskSafety(EngineCore& core, GitSnapshotService& git)
    : main_(core.main),
      tree_(core.tree),
      selection_(core.selection),
      executions_(core.executions),
      git_(git),
      background_(core.ports.taskSafety.background),
      service_(core.ports.taskSafety.supportFolder) {}

// ---- the background -----------------------------------------------------------------------------

void TaskSafety::inBackground(const std::string& folder, Work work, Turn turn) {
  auto& queue = waiting_[folder];
  const bool isNext = turn == Turn::next && !queue.empty();
  queue.insert(isNext ? queue.begin() + 1 : queue.end(), std::move(work));
  if (queue.size() == 1) background_->post(std::exchange(queue.front(), nullptr));
}

void TaskSafety::runNext(const std::string& folder) {
  auto& queue = waiting_[folder];
  queue.pop_front();
  if (queue.empty()) {
    waiting_.erase(folder);
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
  inBackground(
      folder,
      [&main = main_, weak, folder, work = std::move(work), reply = std::move(reply)] {
        main.post([weak, folder, reply, answer = work()]() mutable {
          const auto self = weak.lock();
          if (!self) return;
          // First the reply: what it asks for may have to be next in this folder.
          reply(*self, std::move(answer));
          self->runNext(folder);
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
        if (kind == WorkspaceCheckpointKind::manual) self.notes_ = std::move(captured->notes);
        reply(std::move(captured->checkpoint));
      });
}

void TaskSafety::captureBeforePrompt(const ThreadExecutionKey& key, std::string label,
                                     std::function<void()> done) {
  const auto waiting = std::make_shared<std::atomic<Waiting>>(Waiting::yes);
  const auto limit = std::make_shared<Timer>();
  const auto path = tree_.executionPath(key);
  if (path && waiting_.contains(*path) && restoredFolder_ != *path) {
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
  const std::string text = fmt::format("No checkpoint was taken before this prompt. {}", reason);
  const bool isSaid = std::ranges::any_of(thread->entries, [&](const ChatEntry& entry) {
    return entry.kind == ChatEntryKind::system && entry.text == text;
  });
  if (!isSaid) tree_.appendSystemEntry(text, key);
}

void TaskSafety::createCheckpoint(std::string label) {
  const auto key = selection_.key();
  if (!key || isWorking_) return;
  begin();
  captureCheckpoint(*key, std::move(label), WorkspaceCheckpointKind::manual,
                    [weak = weak_from_this()](const Captured& captured) {
                      const auto self = weak.lock();
                      if (!self) return;
                      if (!captured) self->fail("create a checkpoint", captured.error());
                      self->end();
                    });
}

// ---- going back ---------------------------------------------------------------------------------

/// What a task writes between the recovery checkpoint and the restore would be in neither.
bool TaskSafety::isAtWorkIn(const std::string& folder) {
  for (const auto& workspace : tree_.workspaces()) {
    for (const auto& thread : workspace.threads) {
      const auto* execution = executions_.find({workspace.id, thread.id});
      if (execution && execution->connectionState.isBusy() &&
          executionPath(workspace, thread) == folder) {
        return true;
      }
    }
  }
  return false;
}

void TaskSafety::restoreCheckpoint(const WorkspaceCheckpoint& checkpoint) {
  const auto key = selection_.key();
  const auto path = key ? tree_.executionPath(*key) : std::nullopt;
  if (!path || isWorking_) return;
  // A turn that is about to begin is as much in the way as one that works.
  const auto* execution = executions_.find(*key);
  if (execution && execution->connectionState.isBusy()) return;
  if (isAtWorkIn(*path)) {
    return fail("restore the checkpoint",
                TaskSafetyError::commandFailed("Another task is at work in this folder."));
  }
  begin();
  restoredFolder_ = *path;
  captureCheckpoint(
      *key, "Before rewind", WorkspaceCheckpointKind::recovery,
      [weak = weak_from_this(), key = *key, path = *path, checkpoint](const Captured& recovery) {
        const auto self = weak.lock();
        if (!self) return;
        if (!recovery) {
          self->fail("restore the checkpoint", recovery.error());
          return self->end();
        }
        using Answer = TaskSafetyResult<SafetyNotes>;
        self->ask<Answer>(
            path,
            [service = self->service_, checkpoint, path, saved = *recovery] {
              return service.restore(checkpoint, path, &saved);
            },
            [key, path, checkpoint, saved = *recovery](TaskSafety& desk, Answer restored) {
              if (restored) {
                desk.notes_ = std::move(*restored);
                // A task without its worktree works in the project, and so is restored there.
                const ChatThread* thread = desk.tree_.thread(key);
                if (thread && thread->workspaceMode == TaskWorkspaceMode::isolated &&
                    thread->isolatedWorkspacePath != path) {
                  desk.notes_.push_back(
                      fmt::format("The task's worktree is gone: {} was restored.", path));
                }
                desk.restored(key, checkpoint, saved);
              } else {
                desk.fail("restore the checkpoint", restored.error());
                if (restored.error().mayHaveChangedFiles) desk.git_.refreshGitSnapshot();
              }
              desk.end();
            },
            // A prompt that waits here would begin to change what has just been saved.
            Turn::next);
      });
}

void TaskSafety::restored(const ThreadExecutionKey& key, const WorkspaceCheckpoint& checkpoint,
                          const WorkspaceCheckpoint& recovery) {
  const ChatThread* thread = tree_.thread(key);
  const auto count =
      static_cast<std::size_t>(std::max<std::int64_t>(checkpoint.conversationEntryCount, 0));
  if (thread && count < thread->entries.size()) {
    // A prompt that was sent meanwhile is about what stands now.
    const auto before = static_cast<std::size_t>(recovery.conversationEntryCount);
    std::vector<ChatEntry> since;
    for (std::size_t i = std::max(count, before); i < thread->entries.size(); ++i) {
      since.push_back(thread->entries[i]);
    }
    tree_.truncateTranscript(count, key);
    for (auto& each : since) tree_.appendEntry(std::move(each), key);
  }
  tree_.updateThread(key, [&](ChatThread& each) { each.updatedAt = main_.now(); });
  git_.refreshGitSnapshot();
}

// ---- working apart ------------------------------------------------------------------------------

void TaskSafety::setTaskWorkspaceMode(TaskWorkspaceMode mode) {
  const auto key = selection_.key();
  const Workspace* workspace = key ? tree_.workspace(key->workspaceID) : nullptr;
  if (!workspace || isWorking_) return;
  const ChatThread* thread = tree_.thread(*key);
  if (thread && thread->workspaceMode == mode) return;
  if (mode == TaskWorkspaceMode::shared) {
    return executions_.showError(
        "This task stays isolated so its changes cannot be lost. Open a new shared task, or merge "
        "the worktree from Terminal after reviewing its changes.");
  }
  begin();
  createIsolatedWorktree(*key, [weak = weak_from_this(), key = *key](auto worktree) {
    const auto self = weak.lock();
    if (!self) return;
    if (worktree) {
      self->moveToWorktree(key, std::move(*worktree));
    } else {
      self->fail("isolate this task", worktree.error());
    }
    self->end();
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
  notes_ = std::move(worktree.notes);
  const auto* execution = executions_.find(key);
  const auto stopCount = execution ? std::optional(execution->stopCount) : std::nullopt;
  if (execution && execution->activeRunID) {
    const Date now = main_.now();
    tree_.updateRun(execution->activeRunID, key, [&](RunRecord& run) {
      run.status = RunRecordStatus::cancelled;
      run.statusMessage = "Stopped: the task moved to a worktree of its own.";
      run.completedAt = now;
    });
  }
  // The next prompt starts a client in the new folder.
  executions_.remove(key);
  // A turn whose run has not begun ends as well: it must not wake up behind the next one.
  if (stopCount) executions_.execution(key).stopCount = *stopCount + 1;
  tree_.updateThread(key, [&](ChatThread& thread) {
    thread.workspaceMode = TaskWorkspaceMode::isolated;
    thread.isolatedWorkspacePath = std::move(worktree.path);
  });
  executions_.publishExecutionIfSelected(key);
  git_.refreshGitSnapshot();
}

// ---- telling ------------------------------------------------------------------------------------

void TaskSafety::begin() {
  isWorking_ = true;
  notes_.clear();
  executions_.announceMirror();
}

void TaskSafety::end() {
  isWorking_ = false;
  restoredFolder_.clear();
  executions_.announceMirror();
}

void TaskSafety::fail(std::string_view what, const TaskSafetyError& error) {
  std::string text = fmt::format("Could not {}: {}", what, error.description());
  if (error.mayHaveChangedFiles) {
    text +=
        " Some files may have been put back already. The checkpoint \"Before rewind\", taken just "
        "now, has everything as it was before: restore that one to go back.";
  }
  executions_.showError(std::move(text));
}

}  // namespace vantrell
