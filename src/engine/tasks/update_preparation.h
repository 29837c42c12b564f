// What an update of the program, which restarts it, would interrupt, and the stop of all work
// before it. Main queue.
#pragma once

#include "engine/core/run_lifecycle.h"
#include "engine/imagine/imagine_controller.h"
#include "engine/tasks/task_branches.h"

namespace vantrell {

struct UpdateActivitySummary {
  std::int64_t activeWorkCount = 0;  // conversations at work, and the media generator
  std::int64_t queuedTaskCount = 0;  // prompts that wait; they are stored and outlive the update

  bool operator==(const UpdateActivitySummary&) const = default;
};

class UpdatePreparation {
 public:
  UpdatePreparation(WorkspaceTree& tree, ExecutionTable& executions, RunLifecycle& runs,
                    ImagineController& imagine, TaskBranches& branches);

  UpdateActivitySummary updateActivitySummary() const;
  /// The last act before the restart: stops all work, and has it on the disk when it returns. False
  /// when some of it could not be written. Blocks for as long as the disk takes.
  bool prepareForImmediateUpdate();

 private:
  WorkspaceTree& tree_;
  ExecutionTable& executions_;
  RunLifecycle& runs_;
  ImagineController& imagine_;
  TaskBranches& branches_;
};

}  // namespace vantrell
