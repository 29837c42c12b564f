#include "engine/tasks/update_preparation.h"

namespace vantrell {

UpdatePreparation::UpdatePreparation(WorkspaceTree& tree, ExecutionTable& executions,
                                     RunLifecycle& runs, ImagineController& imagine,
                                     TaskBranches& branches)
    : tree_(tree), executions_(executions), runs_(runs), imagine_(imagine), branches_(branches) {}

UpdateActivitySummary UpdatePreparation::updateActivitySummary() const {
  UpdateActivitySummary summary;
  for (const auto& workspace : tree_.workspaces()) {
    for (const auto& thread : workspace.threads) {
      const ThreadExecutionKey key{workspace.id, thread.id};
      const RunRecord* run = thread.latestRun();
      // A turn that has only begun, or waits for its worktree, has no run yet and would be lost.
      const bool isAtWork =
          (run && isActive(run->status)) || executions_.isBusy(key) || branches_.isPreparing(key);
      summary.activeWorkCount += isAtWork ? 1 : 0;
      summary.queuedTaskCount += static_cast<std::int64_t>(thread.queuedPrompts.size());
    }
  }
  summary.activeWorkCount += imagine_.imagineState().isBusy() ? 1 : 0;
  return summary;
}

bool UpdatePreparation::prepareForImmediateUpdate() {
  branches_.keepUnsent();
  runs_.stopAll("Stopped to install a vantrell update.");
  if (imagine_.imagineState().isBusy()) imagine_.cancelImagine();
  return tree_.flush();
}

}  // namespace vantrell
