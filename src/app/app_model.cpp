#include "app/app_model.h"

#include "app/app_parts.h"
#include "app/selected_task.h"
#include "app/stored_tasks.h"
#include "platform/queues/weakly.h"

namespace vantrell {

AppModel::AppModel(Dependencies dependencies)
    : parts_(std::make_unique<AppParts>(dependencies)),
      selected_(std::make_unique<SelectedTask>(*parts_)),
      storedTasks_(std::make_shared<StoredTasks>(
          dependencies.main, parts_->tree, dependencies.background, dependencies.supportFolder)) {
  startUp(dependencies.refreshesRuntimes);
}

AppModel::~AppModel() {
  parts_->setup.services().onLocalRuntimeChanged = nullptr;
  endAllWork();
}

// The order is fixed: what is stored first, then what an earlier process left open, then the world.
void AppModel::startUp(bool refreshesRuntimes) {
  AppParts& parts = *parts_;
  parts.tree.load();
  parts.tree.settleRunsLeftOpen();
  parts.selection.restore(parts.tree.workspaces());
  parts.navigation.settleSelection();
  if (const auto shown = parts.selection.key()) parts.tree.loadTranscript(*shown);
  parts.settings.load();
  if (refreshesRuntimes) {
    parts.setup.services().loadTasklet(
        [&changes = parts.changes] { changes.mark(topics::runtimes); });
  }
  parts.imagine->load();
  parts.usage.load();
  parts.reportedModels.load();
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
  AppParts& parts = *parts_;
  parts.branches->keepUnsent();
  parts.runs.endAll();
  parts.imagine->reset();
  parts.usage.flush();
  return flush();
}

bool AppModel::flush() {
  return parts_->tree.flush();
}

void AppModel::setReceiving(const ThreadExecutionKey& key, bool receiving) {
  parts_->executions.execution(key).session->setReceiving(receiving);
}

void AppModel::endWork(const ThreadExecutionKey& key) {
  const auto& executions = parts_->executions;
  if (executions.isBusy(key) || executions.hasOpenQuestion(key)) parts_->runs.resetConnection(key);
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
  return *selected_;
}
Navigation& AppModel::navigation() const {
  return parts_->navigation;
}
WorkspaceOperations& AppModel::operations() const {
  return *parts_->operations;
}
SettingsOperations& AppModel::settingsOperations() const {
  return parts_->settingsOperations;
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
StoredTasks& AppModel::storedTasks() const {
  return *storedTasks_;
}
UpdatePreparation& AppModel::updatePreparation() const {
  return parts_->updatePreparation;
}

}  // namespace vantrell
