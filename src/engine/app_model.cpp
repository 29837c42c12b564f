#include "engine/app_model.h"

#include "engine/core/open_tools.h"
#include "platform/queues/weakly.h"

namespace vantrell {

AppModel::AppModel(MainQueue& mainQueue, UserDefaults& defaults, WorkspaceStore& store,
                   EnginePorts enginePorts, Executor* saver)
    : EngineCore(mainQueue, defaults, store, std::move(enginePorts), saver),
      usage(*this),
      runtimes(std::make_shared<InstalledRuntimes>(changes, ports.runtimes)),
      imagine(std::make_shared<ImagineController>(*this, *runtimes)),
      setup(*this),
      catalog(std::make_shared<ModelCatalog>(*this, setup, usage)),
      intake(*this),
      approvals(*this, *imagine),
      controls(*this, approvals, *catalog),
      router(std::make_shared<Router>(*this, approvals, setup, usage)),
      context(std::make_shared<ProjectContextService>(*this)),
      git(std::make_shared<GitSnapshotService>(*this)),
      hooks(std::make_shared<HookRunner>(*this, *context)),
      reviews(*this),
      operations(*this, *context, *git),
      queue(*this),
      failures(*this),
      starter(std::make_shared<AgentLauncher>(*this, intake, approvals, failures, setup, *catalog,
                                              usage)),
      usageReset(std::make_shared<UsageReset>(*this, usage, controls, *starter)),
      status(*this),
      ends(std::make_shared<TurnEnds>(*this, queue, failures, *git, *hooks)),
      delivery(
          std::make_shared<TurnRunner>(*this, *router, *context, usage, *starter, failures, *ends)),
      driver(std::make_shared<Composer>(*this, status, queue, *context, *hooks, *delivery)),
      monitor(std::make_shared<ExecutionMonitor>(*this)),
      safety(std::make_shared<TaskSafety>(*this, *git)),
      branches(std::make_shared<TaskBranches>(*this, operations, *router, *driver, *safety)) {
  executions.onEnded = [this](ThreadExecutionRuntime& execution, const ThreadExecutionKey& key) {
    endOpenTools(execution, key, tree);
  };
  queue.sendNow = [this](std::string text, std::vector<ChatAttachment> attachments,
                         const ThreadExecutionKey& key) {
    driver->sendNow(std::move(text), std::move(attachments), key);
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
  transcriptOfSelection_ = changes.observe([this](const Change& change) {
    if (change.kind == Change::Kind::selectionChanged && change.conversation) {
      tree.loadTranscript(*change.conversation);
    }
  });
  startUp();
}

AppModel::~AppModel() {
  endAllWork();
}

// The order is fixed: what is stored first, then what an earlier process left open, then the world.
void AppModel::startUp() {
  ports.makeServers();
  tree.load();
  tree.settleRunsLeftOpen();
  selection.restore(tree.workspaces());
  operations.settleSelection();
  executions.publishExecution(selection.key());
  if (selection.key()) tree.loadTranscript(*selection.key());
  settings.load();
  ports.loadTasklet();
  imagine->load();
  usage.load();
  reviews.load();
  ports.loadOrchestration();
  context->load();
  ports.configureRemoteHost();
  if (ports.runtimes.refreshesAtStart) {
    runtimes->refreshAll();
    setup.refreshLocalRuntime();
    // A program that only the user's own PATH leads to, or to its interpreter, is asked as well.
    runtimes->readUserPath(weakly(catalog.get(), [](ModelCatalog& self) { self.askPrograms(); }));
  }
  git->refreshGitSnapshot();
  ports.configureExternalSessionImport();
  ports.configureAutomationScheduler();
  monitor->configureExecutionMonitor();
  ports.refreshFleet();
  ports.startPersonalGateway();
}

void AppModel::endAllWork() {
  branches->keepUnsent();
  executions.removeAll();
  imagine->reset();
  usage.flush();
  tree.flush();
}

}  // namespace vantrell
