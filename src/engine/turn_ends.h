// The two ends of a turn that its agent has brought about, and what follows each: the run, the
// interface, paired clients, the hooks, the next prompt of the queue. Main queue.
#pragma once

#include <memory>

#include "engine/engine_core.h"
#include "engine/git_desk.h"
#include "engine/hook_desk.h"
#include "engine/prompt_queue.h"
#include "engine/turn.h"
#include "engine/turn_failures.h"

namespace vantrell {

class TurnEnds : public std::enable_shared_from_this<TurnEnds> {
 public:
  TurnEnds(EngineCore& core, PromptQueue& queue, TurnFailures& failures, GitDesk& git,
           HookDesk& hooks);

  void completed(const Turn& turn, AgentProvider provider);
  void failed(const AgentError& error, const Turn& turn, AgentProvider provider);

 private:
  MainQueue& main_;
  WorkspaceTree& tree_;
  Selection& selection_;
  ExecutionTable& executions_;
  PromptQueue& queue_;
  TurnFailures& failures_;
  GitDesk& git_;
  HookDesk& hooks_;
  const EnginePorts& ports_;
};

}  // namespace vantrell
