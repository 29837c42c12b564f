#include "app/app_model.h"

#include "app/app_parts.h"
#include "platform/queues/weakly.h"

namespace vantrell {

AppModel::Parts::Parts(Dependencies given)
    : main(given.main),
      changes(main),
      orchestration(
          given.supportFolder, [&queue = main] { return queue.now(); },
          [this](const std::string& text) { changes.notice(text); }),
      settings(given.defaults, changes),
      tree(main, given.store, changes, given.writer),
      selection(given.defaults, changes),
      executions(main, changes),
      runs(main, tree, executions, given.events),

      context(std::make_shared<ProjectContextService>(ProjectContextService::Dependencies{
          main, tree, selection, changes, orchestration, given.projects})),
      git(std::make_shared<GitSnapshotService>(tree, selection, changes, given.projects)),
      hooks(std::make_shared<HookRunner>(main, tree, *context, given.projects)),
      reviews(main, changes, orchestration),
      safety(std::make_shared<TaskSafety>(TaskSafety::Dependencies{
          main, tree, executions, runs, *git, changes, given.background, given.supportFolder})),

      runtimes(std::make_shared<InstalledRuntimes>(changes, given.programs)),
      usage(main, changes, orchestration, given.writer),
      setup({settings, tree, selection, executions, runs, given.providers}),
      catalog(std::make_shared<ModelCatalog>(main, changes, setup, usage, *runtimes)),
      controls({main, settings, tree, executions, runs, *catalog}),
      router(std::make_shared<Router>(
          Router::Dependencies{main, settings, tree, selection, executions, runs, setup, usage})),
      imagine(std::make_shared<ImagineController>(ImagineController::Dependencies{
          main, settings, executions, changes, given.events, given.providers, *runtimes,
          given.supportFolder,
          given.background ? *given.background : static_cast<Executor&>(main)})),

      intake(main, tree, executions, runs),
      approvals(settings, executions, runs, *imagine),
      queue(main, tree),
      status(main, tree, executions, changes),
      launcher(std::make_shared<AgentLauncher>(AgentLauncher::Dependencies{
          main, settings, tree, executions, runs, setup, *catalog, usage, intake, approvals})),
      usageReset(std::make_shared<UsageReset>(executions, usage, controls, *launcher)),
      outcome(std::make_shared<TurnOutcome>(main, runs, executions, setup, *git, *hooks)),
      turns(std::make_shared<TurnRunner>(
          TurnRunner::Dependencies{settings, tree, executions, runs, *router, usage, *context,
                                   given.projects, *launcher, *outcome})),
      composer(std::make_shared<Composer>(
          Composer::Dependencies{main, settings, tree, executions, runs, given.events, status,
                                 queue, *context, *hooks, *safety, *turns})),
      monitor(std::make_shared<ExecutionMonitor>(main, executions, runs)),

      operations(std::make_shared<WorkspaceOperations>(WorkspaceOperations::Dependencies{
          main, tree, selection, executions, runs, *context, *git, given.events, changes})),
      branches(std::make_shared<TaskBranches>(
          TaskBranches::Dependencies{main, tree, executions, *router, *composer, *safety})),
      selected(*this) {
  composer->setGate(branches.get());
  selectionWatch = changes.observe([this](const ChangeBatch& batch) {
    const auto shown = selection.key();
    if (batch.has(topics::selection) && shown) tree.loadTranscript(*shown);
  });
  given.providers.onLocalRuntimeChanged = [this] { catalog->localRuntimeChanged(); };
}

AppModel::AppModel(Dependencies dependencies) : parts_(std::make_unique<Parts>(dependencies)) {
  startUp(dependencies.refreshesRuntimes);
}

AppModel::~AppModel() {
  parts_->setup.services().onLocalRuntimeChanged = nullptr;
  endAllWork();
}

// The order is fixed: what is stored first, then what an earlier process left open, then the world.
void AppModel::startUp(bool refreshesRuntimes) {
  Parts& parts = *parts_;
  parts.tree.load();
  parts.tree.settleRunsLeftOpen();
  parts.selection.restore(parts.tree.workspaces());
  parts.operations->settleSelection();
  if (const auto shown = parts.selection.key()) parts.tree.loadTranscript(*shown);
  parts.settings.load();
  if (refreshesRuntimes) {
    parts.setup.services().loadTasklet(
        [&changes = parts.changes] { changes.mark(topics::runtimes); });
  }
  parts.imagine->load();
  parts.usage.load();
  parts.reviews.load();
  parts.context->load();
  if (refreshesRuntimes) {
    parts.runtimes->refreshAll();
    parts.setup.refreshLocalRuntime();
    // A program that only the user's own PATH leads to, or to its interpreter, is asked as well.
    parts.runtimes->readUserPath(
        weakly(parts.catalog.get(), [](ModelCatalog& catalog) { catalog.askPrograms(); }));
  }
  parts.git->refreshGitSnapshot();
  parts.monitor->configureExecutionMonitor();
}

bool AppModel::endAllWork() {
  Parts& parts = *parts_;
  parts.branches->keepUnsent();
  parts.runs.endAll();
  parts.imagine->reset();
  parts.usage.flush();
  return flush();
}

bool AppModel::flush() {
  return parts_->tree.flush();
}

void AppModel::setReceiving(bool receiving) {
  parts_->executions.setReceiving(receiving);
}

void AppModel::showError(std::string text) {
  parts_->executions.showError(std::move(text));
}

void AppModel::clearError() {
  parts_->executions.clearError();
}

// ---- accessors ----------------------------------------------------------------------------------

Changes& AppModel::changes() const {
  return parts_->changes;
}
const WorkspaceTree& AppModel::tree() const {
  return parts_->tree;
}
const Settings& AppModel::settings() const {
  return parts_->settings;
}
Settings& AppModel::editableSettings() const {
  return parts_->settings;
}
const Selection& AppModel::selection() const {
  return parts_->selection;
}
const ExecutionTable& AppModel::executions() const {
  return parts_->executions;
}
const UsageTracker& AppModel::usage() const {
  return parts_->usage;
}
OrchestrationStore& AppModel::orchestration() const {
  return parts_->orchestration;
}
SelectedTask& AppModel::selected() const {
  return parts_->selected;
}
WorkspaceOperations& AppModel::operations() const {
  return *parts_->operations;
}
Composer& AppModel::composer() const {
  return *parts_->composer;
}
PromptQueue& AppModel::queue() const {
  return parts_->queue;
}
Approvals& AppModel::approvals() const {
  return parts_->approvals;
}
SessionControls& AppModel::controls() const {
  return parts_->controls;
}
Router& AppModel::router() const {
  return *parts_->router;
}
TaskSafety& AppModel::safety() const {
  return *parts_->safety;
}
TaskBranches& AppModel::branches() const {
  return *parts_->branches;
}
SessionStatusService& AppModel::status() const {
  return parts_->status;
}
ExecutionMonitor& AppModel::monitor() const {
  return *parts_->monitor;
}
ProjectContextService& AppModel::context() const {
  return *parts_->context;
}
GitSnapshotService& AppModel::git() const {
  return *parts_->git;
}
HookRunner& AppModel::hooks() const {
  return *parts_->hooks;
}
ReviewNotes& AppModel::reviews() const {
  return parts_->reviews;
}
InstalledRuntimes& AppModel::runtimes() const {
  return *parts_->runtimes;
}
ProviderSetup& AppModel::setup() const {
  return parts_->setup;
}
ModelCatalog& AppModel::catalog() const {
  return *parts_->catalog;
}
UsageReset& AppModel::usageReset() const {
  return *parts_->usageReset;
}
ImagineController& AppModel::imagine() const {
  return *parts_->imagine;
}

}  // namespace vantrell
