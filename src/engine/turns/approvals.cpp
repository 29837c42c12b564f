#include "engine/turns/approvals.h"

#include <algorithm>

#include "platform/text/text.h"

namespace vantrell {

namespace {

std::unexpected<Refusal> refuseClosedQuestion() {
  return refuse("That question is not open any more.");
}

std::unexpected<Refusal> refuseWhileAtWork() {
  return refuse("Wait until the turn has ended, or stop it, before you change this.");
}

}  // namespace

const PermissionOption* rejectingOption(const PermissionRequest& request) {
  const auto found = std::ranges::find_if(request.options, [](const PermissionOption& each) {
    return each.kind == "reject_once" || each.kind == "reject_always";
  });
  return found == request.options.end() ? nullptr : &*found;
}

Approvals::Approvals(Settings& settings, ExecutionTable& executions, RunLifecycle& runs,
                     ImagineController& imagine)
    : settings_(settings), executions_(executions), runs_(runs), imagine_(imagine) {}

void Approvals::questionOpened(const ThreadExecutionKey& key) {
  const auto* execution = executions_.find(key);
  if (execution && execution->permissionRequest()) {
    runs_.waiting(key, std::string(execution->permissionRequest()->title));
  }
}

/// The runtime's own always-approve choice raises the program's mode; the client at work has raised
/// its own already. A flag or a script that answers for a person raises only the latter.
void Approvals::noteAlwaysApprove(const PermissionRequest& request, const std::string& optionID,
                                  Answerer answerer, const std::optional<ThreadExecutionKey>& key) {
  const auto option = std::ranges::find(request.options, optionID, &PermissionOption::id);
  if (answerer != Answerer::person || option == request.options.end() ||
      option->kind != "allow_always" ||
      !text::containsIgnoringCase(option->name, "always-approve")) {
    return;
  }
  settings_.announceFailure(settings_.recordPermissionMode(GrokPermissionMode::fullAccess));
  if (auto* execution = key ? executions_.find(*key) : nullptr) {
    execution->permissionMode = GrokPermissionMode::fullAccess;
  }
}

Result<> Approvals::respondToPermission(const ThreadExecutionKey& key, std::int64_t requestID,
                                        const std::string& optionID, Answerer answerer) {
  ThreadExecutionRuntime* execution = executions_.find(key);
  if (!execution) return refuseClosedQuestion();
  const auto request = execution->permissionRequest();  // answering closes it
  if (!execution->session->answer(requestID, optionID)) return refuseClosedQuestion();
  noteAlwaysApprove(*request, optionID, answerer, key);
  runs_.resumed(key, true);
  return {};
}

Result<> Approvals::rejectPermission(const ThreadExecutionKey& key, std::int64_t requestID) {
  const auto* execution = executions_.find(key);
  const auto request = execution ? execution->permissionRequest() : nullptr;
  if (!request || request->id != requestID) return refuseClosedQuestion();
  if (const auto* option = rejectingOption(*request)) {
    return respondToPermission(key, requestID, option->id);
  }
  runs_.stop(key);
  return {};
}

Result<> Approvals::respondToImaginePermission(std::int64_t requestID, const std::string& optionID,
                                               Answerer answerer) {
  const auto request = executions_.imagine().permissionRequest;
  if (!request || !imagine_.respondToPermission(requestID, optionID)) {
    return refuseClosedQuestion();
  }
  noteAlwaysApprove(*request, optionID, answerer, std::nullopt);
  return {};
}

Result<> Approvals::rejectImaginePermission(std::int64_t requestID) {
  const auto request = executions_.imagine().permissionRequest;
  if (!request || request->id != requestID) return refuseClosedQuestion();
  if (const auto* option = rejectingOption(*request)) {
    return respondToImaginePermission(requestID, option->id);
  }
  imagine_.cancelImagine();
  return {};
}

Result<> Approvals::setPermissionMode(GrokPermissionMode mode,
                                      const std::optional<ThreadExecutionKey>& selected) {
  if (mode == settings_.permissionMode()) return {};
  if (!canChangePermissionMode(selected)) return refuseWhileAtWork();
  auto stored = settings_.recordPermissionMode(mode);
  runs_.resetIdleConnections();
  imagine_.reset();
  return stored;
}

Result<> Approvals::setWorkflowMode(TaskWorkflowMode mode,
                                    const std::optional<ThreadExecutionKey>& selected) {
  if (mode == settings_.workflowMode()) return {};
  if (!canChangePermissionMode(selected)) return refuseWhileAtWork();
  auto stored = settings_.recordWorkflowMode(mode);
  if (!settings_.isPlanWithFullAccess()) return stored;
  auto lowered = setPermissionMode(GrokPermissionMode::ask, selected);
  return stored ? lowered : stored;
}

}  // namespace vantrell
