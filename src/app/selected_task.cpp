#include "app/selected_task.h"

#include "app/app_parts.h"

namespace vantrell {

std::optional<ThreadExecutionKey> SelectedTask::key() const {
  return parts_.selection.key();
}

const ThreadExecutionRuntime* SelectedTask::execution() const {
  const auto selected = key();
  return selected ? std::as_const(parts_.executions).find(*selected) : nullptr;
}

void SelectedTask::show(const Result<>& result) {
  if (!result) return parts_.executions.showError(result.error().sentence);
  parts_.executions.clearError();
}

// ---- what is shown ------------------------------------------------------------------------------

ConnectionState SelectedTask::connectionState() const {
  const auto* shown = execution();
  return shown ? shown->connectionState : ConnectionState::idle();
}

std::optional<AgentProvider> SelectedTask::activeProvider() const {
  const auto* shown = execution();
  return shown ? shown->activeProvider : std::nullopt;
}

std::shared_ptr<const std::vector<PlanEntry>> SelectedTask::plan() const {
  static const auto none = std::make_shared<const std::vector<PlanEntry>>();
  const auto* shown = execution();
  return shown ? shown->plan : none;
}

std::shared_ptr<const PermissionRequest> SelectedTask::permissionRequest() const {
  const auto* shown = execution();
  if (shown && shown->permissionRequest()) return shown->permissionRequest();
  return parts_.executions.imagine().permissionRequest;
}

PermissionOwner SelectedTask::permissionOwner() const {
  const auto* shown = execution();
  const bool isOwn = shown && shown->permissionRequest();
  return !isOwn && parts_.executions.imagine().permissionRequest ? PermissionOwner::imagine
                                                                 : PermissionOwner::build;
}

std::optional<std::string> SelectedTask::errorMessage() const {
  if (const auto& message = parts_.executions.errorMessage()) return message;
  const auto* shown = execution();
  return shown ? shown->errorMessage : std::nullopt;
}

void SelectedTask::dismissError() {
  parts_.executions.dismissError(key());
}

std::string_view SelectedTask::cliLog() const {
  const auto* shown = execution();
  return shown ? shown->cliLog.view() : std::string_view();
}

bool SelectedTask::isReplaying() const {
  const auto* shown = execution();
  return shown && shown->isReplaying;
}

// ---- the composer -------------------------------------------------------------------------------

bool SelectedTask::canSend() const {
  return canSubmitPrompt() && !connectionState().isBusy();
}

bool SelectedTask::canSubmitPrompt() const {
  return parts_.selection.workspaceID().has_value();
}

void SelectedTask::send(std::string_view text, std::vector<ChatAttachment> attachments) {
  if (const auto at = key()) show(parts_.composer->send(text, std::move(attachments), *at));
}

void SelectedTask::sendNow(std::string text, std::vector<ChatAttachment> attachments) {
  if (const auto at = key()) {
    show(parts_.composer->sendNow(std::move(text), std::move(attachments), *at));
  }
}

void SelectedTask::stopWorking() {
  if (const auto at = key()) show(parts_.composer->stopWorking(*at));
}

void SelectedTask::resetConnection() {
  if (const auto at = key()) parts_.runs.resetConnection(*at);
}

// ---- questions and modes ------------------------------------------------------------------------

void SelectedTask::respondToPermission(const std::string& optionID) {
  const auto request = permissionRequest();
  if (!request) return;
  show(permissionOwner() == PermissionOwner::imagine
           ? parts_.approvals.respondToImaginePermission(request->id, optionID)
           : parts_.approvals.respondToPermission(*key(), request->id, optionID));
}

void SelectedTask::rejectPermission() {
  const auto request = permissionRequest();
  if (!request) return;
  show(permissionOwner() == PermissionOwner::imagine
           ? parts_.approvals.rejectImaginePermission(request->id)
           : parts_.approvals.rejectPermission(*key(), request->id));
}

bool SelectedTask::canChangePermissionMode() const {
  return parts_.approvals.canChangePermissionMode(key());
}

void SelectedTask::setPermissionMode(GrokPermissionMode mode) {
  show(parts_.approvals.setPermissionMode(mode, key()));
}

void SelectedTask::setWorkflowMode(TaskWorkflowMode mode) {
  show(parts_.approvals.setWorkflowMode(mode, key()));
}

// ---- queue and branches -------------------------------------------------------------------------

void SelectedTask::runNextQueuedPrompt() {
  if (const auto at = key()) show(parts_.composer->runNextQueuedPrompt(*at));
}

void SelectedTask::moveQueuedPromptToFront(const Uuid& id) {
  if (const auto at = key()) show(parts_.queue.moveQueuedPromptToFront(id, *at));
}

void SelectedTask::removeQueuedPrompt(const Uuid& id) {
  if (const auto at = key()) show(parts_.queue.removeQueuedPrompt(id, *at));
}

void SelectedTask::clearQueuedPrompts() {
  if (const auto at = key()) show(parts_.queue.clearQueuedPrompts(*at));
}

void SelectedTask::select(const Result<ThreadExecutionKey>& made) {
  if (!made) return show(std::unexpected(made.error()));
  show(parts_.navigation.selectThread(made->threadID, made->workspaceID));
}

void SelectedTask::forkThread(const std::optional<std::string>& throughEntryID) {
  const auto at = key();
  if (!at) return;
  const auto fork = parts_.branches->forkThread(*at, throughEntryID);
  select(fork);
  if (fork) parts_.changes.composerWanted(*fork);
}

void SelectedTask::branchAndSend(std::string_view fromEntryID, std::string_view prompt,
                                 std::optional<AgentProvider> provider) {
  const auto at = key();
  if (at) select(parts_.branches->branchAndSend(*at, fromEntryID, prompt, provider));
}

void SelectedTask::retry(std::optional<AgentProvider> provider) {
  if (const auto at = key()) select(parts_.branches->retry(*at, provider));
}

void SelectedTask::compareNextPrompt(std::string_view prompt,
                                     const std::vector<AgentProvider>& providers) {
  const auto at = key();
  if (!at) return;
  const auto forks = parts_.branches->compareNextPrompt(*at, prompt, providers);
  if (!forks) return show(std::unexpected(forks.error()));
  select(forks->front());
}

// ---- providers ----------------------------------------------------------------------------------

void SelectedTask::handoff(AgentProvider to, ProviderHandoffScope scope) {
  if (const auto at = key()) show(parts_.router->handoff(to, scope, *at));
}

void SelectedTask::setRoutingMode(ProviderRoutingMode mode) {
  show(parts_.router->setRoutingMode(mode, key()));
}

RoutingPreview SelectedTask::routingPreview() const {
  return parts_.router->routingPreview(key());
}

AgentProvider SelectedTask::sessionConfigurationProvider() const {
  return parts_.controls.sessionConfigurationProvider(key());
}

std::vector<ProviderModelOption> SelectedTask::sessionModelOptions() const {
  return parts_.controls.sessionModelOptions(key());
}

std::vector<ProviderEffortOption> SelectedTask::sessionEffortOptions() const {
  return parts_.controls.sessionEffortOptions(key());
}

std::string SelectedTask::sessionModelLabel() const {
  return parts_.controls.sessionModelLabel(key());
}

std::string SelectedTask::sessionEffortLabel() const {
  return parts_.controls.sessionEffortLabel(key());
}

void SelectedTask::setSessionModel(const std::string& id) {
  const auto at = key();
  if (at) show(parts_.controls.chooseModel(sessionConfigurationProvider(), *at, id));
}

void SelectedTask::setSessionEffort(const std::string& id) {
  const auto at = key();
  if (at) show(parts_.controls.chooseEffort(sessionConfigurationProvider(), *at, id));
}

void SelectedTask::refreshSessionUsage() {
  parts_.controls.refreshSessionUsage(key());
}

void SelectedTask::resetSessionUsage() {
  if (const auto at = key()) show(parts_.usageReset->resetSessionUsage(*at));
}

// ---- safety and projects ------------------------------------------------------------------------

void SelectedTask::createCheckpoint(std::string label) {
  const auto at = key();
  if (!at) return;
  parts_.safety->createCheckpoint(*at, std::move(label),
                                  [this](const Result<>& result) { show(result); });
}

void SelectedTask::restoreCheckpoint(const WorkspaceCheckpoint& checkpoint) {
  const auto at = key();
  if (!at) return;
  parts_.safety->restoreCheckpoint(*at, checkpoint,
                                   [this](const Result<>& result) { show(result); });
}

void SelectedTask::setTaskWorkspaceMode(TaskWorkspaceMode mode) {
  const auto at = key();
  if (!at) return;
  parts_.safety->setTaskWorkspaceMode(*at, mode, [this](const Result<>& result) { show(result); });
}

void SelectedTask::openProjectInTerminal() {
  const auto id = parts_.selection.workspaceID();
  const Workspace* workspace = id ? parts_.tree.workspace(*id) : nullptr;
  if (workspace) parts_.runtimes->openProjectInTerminal(workspace->path);
}

void SelectedTask::addReviewAnnotation(std::string filePath, std::optional<std::int64_t> line,
                                       std::string_view body, ReviewDecision decision) {
  const auto at = key();
  if (at) show(parts_.reviews.addReviewAnnotation(std::move(filePath), line, body, decision, *at));
}

std::vector<ReviewAnnotation> SelectedTask::selectedReviewAnnotations() const {
  const auto at = key();
  return at ? annotationsOf(*at, parts_.reviews.reviewAnnotations())
            : std::vector<ReviewAnnotation>();
}

}  // namespace vantrell
