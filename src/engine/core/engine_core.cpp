#include "engine/core/engine_core.h"

#include "records/stores/orchestration_store.h"
#include "records/stores/workspace_store.h"

namespace vantrell {

EngineCore::EngineCore(MainQueue& mainQueue, UserDefaults& defaults, WorkspaceStore& store,
                       EnginePorts enginePorts, Executor* saver)
    : main(mainQueue),
      ports(std::move(enginePorts)),
      writer(saver),
      settings(defaults, changes),
      tree(main, store, changes, writer),
      selection(defaults),
      executions(main, selection, changes),
      orchestration(std::make_unique<OrchestrationStore>(
          store.supportFolder(), [this] { return main.now(); },
          [this](const std::string& notice) {
            changes.announce({.kind = Change::Kind::noticeRaised, .text = notice});
          })) {}

EngineCore::~EngineCore() = default;

}  // namespace vantrell
