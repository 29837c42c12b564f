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

#include "engine/core/engine_core.h"
#include "engine/core/task_safety_means.h"
#include "engine/projects/git_snapshot_service.h"
#include "project/task_safety_service.h"

namespace vantrell {

class TaskSafety : public std::enable_shared_from_this<TaskSafety> {
 public:
  TaskSafety(EngineCore& core, GitSnapshotService& git);

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

  // The user's operations, on the selected conversation. What goes wrong is in the interface's
  // error message. While one of them works, the others do nothing.

  void createCheckpoint(std::string label);
  /// First takes a recovery checkpoint, without which nothing is restored; then puts files and
  /// conversation back. Does nothing while the agent works.
  void restoreCheckpoint(const WorkspaceCheckpoint& checkpoint);
  /// One way only: a task in a worktree stays there, since nothing flows back by itself.
  void setTaskWorkspaceMode(TaskWorkspaceMode mode);

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
  bool taskSafetyWorking() const { return isWorking_; }
  /// What the last of these did not keep, put back or copy, in sentences.
  const SafetyNotes& notes() const { return notes_; }

 private:
  /// Whether a piece of work still waits for its turn: the first to change it decides.
  enum class Waiting { yes, itsTurnHasCome, calledOff };
  using WaitingFlag = std::shared_ptr<std::atomic<Waiting>>;

  void captureCheckpoint(const ThreadExecutionKey& key, std::string label,
                         WorkspaceCheckpointKind kind, std::function<void(Captured)> reply,
                         WaitingFlag waiting);
  void sayWhyNone(const ThreadExecutionKey& key, const std::string& reason);
  void begin();
  void end();
  void fail(std::string_view what, const TaskSafetyError& error);
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
  Selection& selection_;
  ExecutionTable& executions_;
  GitSnapshotService& git_;
  Executor* const background_;
  const TaskSafetyService service_;
  bool isWorking_ = false;
  std::string restoredRepository_;  // its folder; empty: nothing is being restored
  SafetyNotes notes_;
  std::map<std::string, std::deque<Work>> waiting_;  // by repository, the first is under way
};

}  // namespace vantrell
