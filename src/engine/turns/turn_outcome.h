// The two ends of a turn that its agent has brought about, and what follows each: the run, the Git
// snapshot, the hooks, the next prompt of the queue. Main queue.
#pragma once

#include <memory>

#include "engine/core/run_lifecycle.h"
#include "engine/core/selection.h"
#include "engine/projects/git_snapshot_service.h"
#include "engine/projects/hook_runner.h"
#include "engine/providers/provider_setup.h"
#include "engine/turns/turn.h"

namespace vantrell {

class TurnOutcome : public std::enable_shared_from_this<TurnOutcome> {
 public:
  TurnOutcome(MainQueue& main, RunLifecycle& runs, ExecutionTable& executions,
              const ProviderSetup& setup, GitSnapshotService& git, HookRunner& hooks);

  void completed(const Turn& turn, AgentProvider provider);
  void failed(const AgentError& error, const Turn& turn, AgentProvider provider);

 private:
  void runHooks(ProjectHookEvent event, const ThreadExecutionKey& key);

  MainQueue& main_;
  RunLifecycle& runs_;
  ExecutionTable& executions_;
  const ProviderSetup& setup_;
  GitSnapshotService& git_;
  HookRunner& hooks_;
};

}  // namespace vantrell
