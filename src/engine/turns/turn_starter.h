// The steps of a turn from its prompt to its run: checkpoint, hooks, run, text; then TurnRunner
// takes it on. Main queue.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "engine/core/refusal.h"
#include "engine/core/run_lifecycle.h"
#include "engine/projects/hook_runner.h"
#include "engine/projects/task_safety.h"
#include "engine/turns/turn_runner.h"

namespace vantrell {

class TurnStarter : public std::enable_shared_from_this<TurnStarter> {
 public:
  struct Dependencies {
    MainQueue& main;
    WorkspaceTree& tree;
    RunLifecycle& runs;
    HookRunner& hooks;
    TaskSafety& safety;
    TurnRunner& turns;
  };
  explicit TurnStarter(Dependencies dependencies) : core_(dependencies) {}

  /// Starts a turn now, whatever the state. `whenCompleted` follows once its agent has finished.
  Result<> start(const ThreadExecutionKey& key, std::string text,
                 std::vector<ChatAttachment> attachments, std::function<void()> whenCompleted);

 private:
  struct Prompt {
    ThreadExecutionKey key;
    std::string text;
    std::vector<ChatAttachment> attachments;
    std::function<void()> whenCompleted;
    RunLifecycle::Preparation preparation{};
  };
  /// Each step may take a while: the turn may have been stopped meanwhile, or its task deleted.
  bool wasStopped(const Prompt& prompt) const {
    return core_.runs.wasStopped(prompt.key, prompt.preparation);
  }
  void takeCheckpoint(const Prompt& prompt);
  void runHooks(const Prompt& prompt);
  void beginRun(const Prompt& prompt);

  const Dependencies core_;
};

}  // namespace vantrell
