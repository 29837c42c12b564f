// Everything that automations are made of, in the order of its dependencies. For app/, which owns
// one, and for tests. Main queue.
#pragma once

#include "automations/automations.h"

namespace vantrell {

struct AutomationsModule {
  /// All must outlive it.
  struct Dependencies {
    MainQueue& main;
    Changes& changes;
    WorkspaceTree& tree;
    WorkspaceOperations& operations;
    Composer& composer;
    ExecutionTable& executions;
    OrchestrationStore& files;
    Executor& writer;
    Executor& background;  // reads projects
  };
  /// Reads the stored recipes. Nothing runs by itself before configureAutomationScheduler().
  explicit AutomationsModule(const Dependencies& given);
  /// All of it is on the disk afterwards, if that can be.
  ~AutomationsModule();
  AutomationsModule(const AutomationsModule&) = delete;
  AutomationsModule& operator=(const AutomationsModule&) = delete;

  AutomationStore store;
  const std::shared_ptr<Automations> automations;
};

}  // namespace vantrell
