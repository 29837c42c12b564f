// What nearly every desk works on, made in the order of its dependencies: the queue, the upward
// calls, the user's choices, the conversations, what is looked at and the live state of each. A
// desk gets it at birth, keeps what it needs of it, and beside it only the few desks that it calls.
// Owned by AppModel, or by a test of one desk. Main queue.
#pragma once

#include <memory>

#include "engine/core/changes.h"
#include "engine/core/engine_ports.h"
#include "engine/core/execution_table.h"
#include "engine/core/selection.h"
#include "engine/core/settings.h"
#include "engine/core/workspace_tree.h"

namespace vantrell {

class OrchestrationStore;

struct EngineCore {
  /// Everything given must outlive it. Nothing is loaded yet. What is saved often (conversations,
  /// the ledger of usage) is written on `writer`, which runs its work in order; without one, on the
  /// main queue.
  EngineCore(MainQueue& main, UserDefaults& defaults, WorkspaceStore& store, EnginePorts ports,
             Executor* writer = nullptr);
  ~EngineCore();
  EngineCore(const EngineCore&) = delete;
  EngineCore& operator=(const EngineCore&) = delete;

  MainQueue& main;
  const EnginePorts ports;
  Executor* const writer;
  Changes changes;
  Settings settings;
  WorkspaceTree tree;
  Selection selection;
  ExecutionTable executions;
  /// Keeps the small records; for .cpp files, which include its header.
  const std::unique_ptr<OrchestrationStore> orchestration;
};

}  // namespace vantrell
