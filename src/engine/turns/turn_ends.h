// The two ends of a turn that its agent has brought about, and what follows each: the run, the
// interface, paired clients, the hooks, the next prompt of the queue. Main queue.
#pragma once

#include <memory>

#include "engine/core/engine_core.h"
#include "engine/projects/git_snapshot_service.h"
#include "engine/projects/hook_runner.h"
#include "engine/turns/prompt_queue.h"
#include "engine/turns/turn.h"
#include "engine/turns/turn_failures.h"

namespace vantrell {

class TurnEnds : public std::enable_shared_from_this<TurnEnds> {
 public:
  TurnEnds(EngineCore& core, PromptQueue& queue, TurnFailures& failures, GitSnapshotService& git,
           HookRunner& hooks);

  void completed(const Turn& turn, AgentProvider provider);
  void failed(const AgentError& error, const Turn& turn, AgentProvider provider);

 private:
  MainQueue& main_;
  WorkspaceTree& tree_;
  Selection& selection_;
  ExecutionTable& executions_;
  PromptQueue& queue_;
  TurnFailures& failures_;
  GitSnapshotService& git_;
  HookRunner& hooks_;
  const EnginePorts& ports_;
};

}  // namespace vantrell
