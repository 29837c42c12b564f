#include "engine/app_model.h"

#include "engine/open_tools.h"
#include "platform/weakly.h"
#include "records/orchestration_store.h"
#include "records/workspace_store.h"

namespace vantrell {

AppModel::AppModel(MainQueue& mainQueue, UserDefaults& defaults, WorkspaceStore& store,
                   EnginePorts ports, Executor* writer)
    : main(mainQueue),
      ports_(std::move(ports)),
      settings(defaults, changes),
      tree(main, store, changes, writer),
      selection(defaults),
      executions(main, selection, changes),
      orchestration(std::make_unique<OrchestrationStore>(
          store.supportFolder(), [this] { return main.now(); },
          [this](const std::string& notice) {
            changes.announce({.kind = Change::Kind::noticeRaised, .text = notice});
          })),
      usage(main, changes, *orchestration, writer),
      runtimes(std::make_shared<RuntimeDesk>(changes, ports_.runtimes)),
      imagine(
          std::make_shared<ImagineDesk>(main, settings, executions, *runtimes, changes, ports_)),
      setup(settings, tree, selection, executions, ports_),
      catalog(std::make_shared<ModelCatalog>(main, setup, usage, changes, ports_)),
      intake(main, tree, executions, changes),
      approvals(main, settings, tree, selection, executions, *imagine, ports_),
      controls(main, settings, tree, selection, executions, approvals, *catalog),
      router(std::make_shared<Router>(main, settings, tree, selection, executions, approvals, setup,
                                      usage, ports_)),
      context(std::make_shared<ProjectContextDesk>(main, tree, selection, changes, *orchestration,
                                                   ports_)),
      git(std::make_shared<GitDesk>(tree, selection, changes, ports_)),
      hooks(std::make_shared<HookDesk>(main, tree, selection, executions, *context, ports_)),
      reviews(main, selection, changes, *orchestration),
      operations(main, tree, selection, executions, *context, *git, ports_),
      failures(main, tree, executions, ports_),
      starter(std::make_shared<ClientStarter>(main, tree, executions, intake, approvals, failures,
                                              setup, *catalog, usage)),
      usageReset(std::make_shared<UsageReset>(selection, executions, usage, controls, *starter)),
      driver(std::make_shared<TaskDriver>(main, settings, tree, selection, executions, *starter,
                                          failures, usage, *router, *context, *git, *hooks,
                                          ports_)),
      safety(std::make_shared<TaskSafety>(main, tree, selection, executions, *git, ports_)) {
  executions.onEnded = [this](ThreadExecutionRuntime& execution, const ThreadExecutionKey& key) {
    endOpenTools(execution, key, tree);
  };
  executions.onRunAbandoned = [this](const Uuid& runID, const ThreadExecutionKey& key) {
    tree.updateRun(runID, key, [this](RunRecord& run) {
      if (!isActive(run.status)) return;
      run.status = RunRecordStatus::cancelled;
      run.statusMessage = "Stopped: the connection to the agent was reset.";
      run.completedAt = main.now();
    });
  };
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
  usage.load();
  reviews.load();
  ports_.loadOrchestration();
  context->load();
  ports_.configureRemoteHost();
  if (ports_.runtimes.refreshesAtStart) {
    runtimes->refreshAll();
    setup.refreshLocalRuntime();
    // A program that only the user's own PATH leads to, or to its interpreter, is asked as well.
    runtimes->readUserPath(weakly(catalog.get(), [](ModelCatalog& self) { self.askPrograms(); }));
  }
  git->refreshGitSnapshot();
  ports_.configureExternalSessionImport();
  ports_.configureAutomationScheduler();
  ports_.configureExecutionMonitor();
  ports_.refreshFleet();
  ports_.startPersonalGateway();
}

void AppModel::endAllWork() {
  executions.removeAll();
  imagine->reset();
  usage.flush();
  tree.save();
  tree.flush();
}

}  // namespace vantrell
