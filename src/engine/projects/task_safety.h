// The user's safety net: checkpoints before each prompt and by hand, going back to one, and tasks
// that work in a worktree of their own. One piece of work at a time in each repository, in the
// background; every result is applied after its conversation has been looked up again. Main queue.
#pragma once

#include <atomic>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "engine/core/refusal.h"
#include "engine/core/run_lifecycle.h"
#include "engine/projects/git_snapshot_service.h"
#include "project/task_safety_service.h"

namespace vantrell {

class TaskSafety : public std::enable_shared_from_this<TaskSafety> {
 public:
  struct Dependencies {
    MainQueue& main;
    WorkspaceTree& tree;
    ExecutionTable& executions;
    RunLifecycle& runs;
    GitSnapshotService& git;
    Changes& changes;
    Executor*
        background;  // runs what blocks; null: every operation says that there is no repository
    std::string supportFolder;
  };
  explicit TaskSafety(Dependencies dependencies);

  using Captured = TaskSafetyResult<WorkspaceCheckpoint>;
  /// Takes a checkpoint and puts it in front of the conversation's, of which the newest 50 are kept
  /// in the list.
  void captureCheckpoint(const ThreadExecutionKey& key, std::string label,
                         WorkspaceCheckpointKind kind, std::function<void(Captured)> reply) {
    captureCheckpoint(key, std::move(label), kind, std::move(reply), nullptr);
  }
  /// The one before a prompt, which goes on in any case: it waits for a restore in its folder, for
  /// anything else there no longer than for the checkpoint itself. Why there is none is said in the
  /// conversation, once; nothing is said where there is no repository.
  void captureBeforePrompt(const ThreadExecutionKey& key, std::string label,
                           std::function<void()> done);

  // The user's operations. `done` comes once, on the main queue: at once where it is refused. While
  // one of them works on a task, others on that task are refused; those of other tasks go on, in
  // one repository one after the other.

  using Done = std::function<void(Result<>)>;
  void createCheckpoint(const ThreadExecutionKey& key, std::string label, Done done);
  /// First takes a recovery checkpoint, without which nothing is restored; then puts files and
  /// conversation back. Refused while an agent works in the folder.
  void restoreCheckpoint(const ThreadExecutionKey& key, const WorkspaceCheckpoint& checkpoint,
                         Done done);
  /// One way only: a task in a worktree stays there, since nothing flows back by itself.
  void setTaskWorkspaceMode(const ThreadExecutionKey& key, TaskWorkspaceMode mode, Done done);

  // For conversations that begin in a worktree.

  using Worktree = TaskSafetyService::Worktree;
  /// Makes the conversation's worktree of its project, behind what is under way there. Replies on
  /// the main queue; the conversation stays as it is, and may have gone.
  void createIsolatedWorktree(const ThreadExecutionKey& key,
                              std::function<void(TaskSafetyResult<Worktree>)> reply);
  /// Lets the conversation work there: its client, and a turn that it is at, end.
  void moveToWorktree(const ThreadExecutionKey& key, Worktree worktree);

  /// Anything at all is under way in any folder, or waits for its turn there.
  bool isAtWork() const { return !waiting_.empty(); }
  /// A checkpoint by hand, a restore or an isolation is under way.
  bool taskSafetyWorking() const { return !working_.empty(); }
  /// What the conversation's last operation did not keep, put back or copy, in sentences.
  const SafetyNotes& notes(const ThreadExecutionKey& key) const;

 private:
  /// Whether a piece of work still waits for its turn: the first to change it decides.
  enum class Waiting { yes, itsTurnHasCome, calledOff };
  using WaitingFlag = std::shared_ptr<std::atomic<Waiting>>;

  void captureCheckpoint(const ThreadExecutionKey& key, std::string label,
                         WorkspaceCheckpointKind kind, std::function<void(Captured)> reply,
                         WaitingFlag waiting);
  void sayWhyNone(const ThreadExecutionKey& key, const std::string& reason);
  Result<> begin(const ThreadExecutionKey& key);
  void end(const ThreadExecutionKey& key, const Done& done, Result<> result);
  bool isBeingRestored(const std::string& repository) const;
  bool isAtWorkIn(const std::string& folder);
  void restored(const ThreadExecutionKey& key, const WorkspaceCheckpoint& checkpoint,
                const WorkspaceCheckpoint& recovery);
  enum class Turn { last, next };
  /// Runs after what is under way in the same repository. The next one is before all that waits
  /// there: for a reply that has to go on before any other work.
  void inBackground(const std::string& repository, Work work, Turn turn);
  void runNext(const std::string& repository);
  /// Work there, then `reply` here with what it answered.
  template <typename Answer>
  void ask(const std::string& folder, std::function<Answer()> work,
           std::function<void(TaskSafety&, Answer)> reply, Turn turn = Turn::last);

  MainQueue& main_;
  WorkspaceTree& tree_;
  ExecutionTable& executions_;
  RunLifecycle& runs_;
  GitSnapshotService& git_;
  Changes& changes_;
  Executor* const background_;
  const TaskSafetyService service_;
  /// The user's operations, with the folder of the repository that is being restored.
  std::map<ThreadExecutionKey, std::string> working_;
  std::map<ThreadExecutionKey, SafetyNotes> notes_;
  std::map<std::string, std::deque<Work>> waiting_;  // by repository, the first is under way
};

}  // namespace vantrell
