#include "engine/app_model.h"

namespace vantrell {

AppModel::AppModel(MainQueue& mainQueue, UserDefaults& defaults, WorkspaceStore& store,
                   EnginePorts ports, Executor* writer)
    : main(mainQueue),
      ports_(std::move(ports)),
      settings(defaults, changes),
      tree(main, store, changes, writer),
      selection(defaults),
      executions(main, selection, changes),
      runtimes(std::make_shared<RuntimeDesk>(changes, ports_.runtimes)),
      imagine(
          std::make_shared<ImagineDesk>(main, settings, executions, *runtimes, changes, ports_)),
      intake(main, tree, executions, changes),
      approvals(main, settings, tree, selection, executions, *imagine, ports_),
      operations(main, tree, selection, executions, ports_),
      failures(main, tree, executions, ports_),
      starter(std::make_shared<ClientStarter>(main, settings, tree, executions, intake, approvals,
                                              failures, changes, ports_)),
      driver(std::make_shared<TaskDriver>(main, settings, tree, selection, executions, *starter,
                                          failures, ports_)) {
  approvals.stopTask = [this] { driver->stopWorking(); };
  runtimes->showError = [this](std::string text) { executions.showError(std::move(text)); };
  runtimes->selectedProject = [this]() -> std::optional<std::string> {
    const auto id = selection.workspaceID();
    const Workspace* workspace = id ? tree.workspace(*id) : nullptr;
    return workspace ? std::optional(workspace->path) : std::nullopt;
  };
  startUp();
}

AppModel::~AppModel() {
  endAllWork();
}

// The order is fixed: what is stored first, then what an earlier process left open, then the world.
void AppModel::startUp() {
  ports_.makeServers();
  tree.load();
  tree.settleRunsLeftOpen();
  selection.restore(tree.workspaces());
  operations.settleSelection();
  executions.publishExecution(selection.key());
  settings.load();
  ports_.loadTasklet();
  imagine->load();
  ports_.loadOrchestration();
  ports_.loadProjectContext();
  ports_.configureRemoteHost();
  if (ports_.runtimes.refreshesAtStart) runtimes->refreshAll();
  ports_.refreshRuntimes();
  ports_.refreshGitSnapshot();
  ports_.configureExternalSessionImport();
  ports_.configureAutomationScheduler();
  ports_.configureExecutionMonitor();
  ports_.refreshFleet();
  ports_.startPersonalGateway();
}

void AppModel::endAllWork() {
  executions.removeAll();
  imagine->reset();
  tree.save();
  tree.flush();
}

}  // namespace vantrell
