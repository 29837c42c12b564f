// Checkpoints of a project's uncommitted state, restoring them, and worktrees for tasks that work
// apart. No state of its own: all lies below "TaskSafety" of the support folder, owner-only, and
// nothing there is ever deleted. Blocks for as long as git does: never on the main queue.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "platform/values/date.h"
#include "platform/values/uuid.h"
#include "project/task_safety_error.h"
#include "project/uncommitted_changes.h"
#include "records/values/conversation_records.h"

namespace vantrell {

class TaskSafetyService {
 public:
  /// The folder of the program's state; "TaskSafety" is made in it when it is needed.
  explicit TaskSafetyService(std::string supportFolder);

  /// What an automatic checkpoint may take: it stands between the user and the answer, and its
  /// archive stays for good. One that needs more is not taken at all, so that there is no half one
  /// to restore.
  static constexpr std::chrono::seconds automaticTime{20};
  static constexpr std::uint64_t automaticFiles = 20'000;                    // untracked
  static constexpr std::uint64_t automaticBytes = std::uint64_t{256} << 20;  // of these

  struct Request {
    Uuid workspaceID;
    Uuid threadID;
    std::string workspacePath;
    std::string label;
    WorkspaceCheckpointKind kind = WorkspaceCheckpointKind::automatic;
    std::int64_t entryCount = 0;
    std::optional<std::string> sourceMessageID;
    Date now;
  };
  struct Captured {
    WorkspaceCheckpoint checkpoint;
    SafetyNotes notes;  // what it does not hold
  };
  /// Archives what is not committed. After a failure nothing is left in the archives.
  TaskSafetyResult<Captured> captureCheckpoint(const Request& request) const;

  /// Puts the tracked and untracked files of the project back, and what was staged. `recovery` is
  /// the checkpoint that was taken just before: what a restore would lose and it lacks is added to
  /// it; without one such a restore is refused. Answers what was not put back.
  TaskSafetyResult<SafetyNotes> restore(const WorkspaceCheckpoint& checkpoint,
                                        const std::string& workspacePath,
                                        const WorkspaceCheckpoint* recovery = nullptr) const;

  struct Worktree {
    /// Where the task works: of a project that is a part of its repository, that part.
    std::string path;
    SafetyNotes notes;
  };
  /// A worktree of HEAD, detached, with a copy of what is not committed. One that is there is
  /// returned as it is; if it was never completed, the notes name what is missing in it.
  TaskSafetyResult<Worktree> createIsolatedWorktree(const Uuid& workspaceID, const Uuid& threadID,
                                                    const std::string& sourcePath) const;

 private:
  TaskSafetyResult<> copyCurrentChanges(const PatchGit& source, const std::string& target,
                                        SafetyNotes& notes) const;

  const std::string root_;
};

}  // namespace vantrell
