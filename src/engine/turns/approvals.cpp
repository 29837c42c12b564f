#include "engine/turns/approvals.h"

#include <fmt/format.h>

#include "platform/text/text.h"
#include "runtimes/catalog/provider_registry.h"

namespace vantrell {

Approvals::Approvals(EngineCore& core, ImagineController& imagine)
    : main_(core.main),
      settings_(core.settings),
      tree_(core.tree),
      selection_(core.selection),
      executions_(core.executions),
      imagine_(imagine),
      ports_(core.ports) {}

void Approvals::requestArrived(PermissionRequest request, const ThreadExecutionKey& key) {
  ThreadExecutionRuntime& execution = executions_.execution(key);
  const Date now = main_.now();
  const std::string title = request.title;
  execution.permissionOwner = PermissionOwner::build;
  execution.permissionRequest = std::make_shared<PermissionRequest>(std::move(request));
  execution.lastActivityAt = now;
  execution.lastPersistedActivityAt = now;
  execution.stallWarningSent = false;
  tree_.updateRun(execution.activeRunID, key, [&](RunRecord& run) {
    run.status = RunRecordStatus::waitingApproval;
    run.statusMessage = title;
    run.lastActivityAt = now;
  });
  executions_.publishExecutionIfSelected(key);
  ports_.sendRemoteTaskEvent("needs_attention", title, key);
}

void Approvals::requestWithdrawn(std::int64_t requestID, const ThreadExecutionKey& key) {
  ThreadExecutionRuntime* execution = executions_.find(key);
  if (!execution || !execution->permissionRequest ||
      execution->permissionRequest->id != requestID) {
    return;
  }
  execution->permissionRequest = nullptr;
  execution->lastActivityAt = main_.now();
  tree_.updateRun(execution->activeRunID, key, [&](RunRecord& run) {
    run.status = RunRecordStatus::running;
    run.lastActivityAt = main_.now();
    if (run.provider) run.statusMessage = fmt::format("{} is working", shortLabel(*run.provider));
  });
  executions_.publishExecutionIfSelected(key);
}

void Approvals::respondToPermission(const std::string& optionID, Answerer answerer) {
  const ExecutionViewState& mirror = executions_.mirror();
  const auto request = mirror.permissionRequest;
  const auto key = selection_.key();
  if (!request) return;

  const auto option = std::ranges::find(request->options, optionID, &PermissionOption::id);
  const bool isOfImagine = mirror.permissionOwner == PermissionOwner::imagine;
  if (isOfImagine) {
    imagine_.respondToPermission(request->id, optionID);
  } else if (mirror.client) {
    mirror.client->respondToPermission(request->id, optionID);
  }
  if (answerer == Answerer::person && option != request->options.end() &&
      option->kind == "allow_always" &&
      text::containsIgnoringCase(option->name, "always-approve")) {
    // The runtime's own always-approve choice raises the program's mode; the client at work has
    // raised its own already. A flag or a script that answers for a person raises only the latter.
    settings_.recordPermissionMode(GrokPermissionMode::fullAccess);
  }
  // The conversation's own question, if there is one behind it, is still to be answered.
  if (isOfImagine) return executions_.closeImagineQuestion();
  if (!key) return;
  if (ThreadExecutionRuntime* execution = executions_.find(*key)) {
    execution->permissionRequest = nullptr;
    // The silence until now was the user's.
    execution->lastActivityAt = main_.now();
    tree_.updateRun(execution->activeRunID, *key, [this](RunRecord& run) {
      run.status = RunRecordStatus::running;
      run.statusMessage = "Continuing after your decision";
      run.lastActivityAt = main_.now();
    });
  }
  executions_.publishExecutionIfSelected(*key);
}

void Approvals::rejectPermission() {
  const auto request = executions_.mirror().permissionRequest;
  if (!request) return;
  const auto option = std::ranges::find_if(request->options, [](const PermissionOption& each) {
    return each.kind == "reject_once" || each.kind == "reject_always";
  });
  if (option == request->options.end()) {
    if (executions_.mirror().permissionOwner != PermissionOwner::imagine) return stopTask();
    return imagine_.cancelImagine();
  }
  respondToPermission(option->id);
}

bool Approvals::canChangePermissionMode() const {
  const ExecutionViewState& mirror = executions_.mirror();
  return !mirror.connectionState.isBusy() && !imagine_.imagineState().isBusy() &&
         !mirror.permissionRequest;
}

void Approvals::setPermissionMode(GrokPermissionMode mode) {
  if (!canChangePermissionMode() || mode == settings_.permissionMode()) return;
  settings_.recordPermissionMode(mode);
  executions_.resetConnection();
  imagine_.reset();
}

void Approvals::setWorkflowMode(TaskWorkflowMode mode) {
  if (!canChangePermissionMode() || mode == settings_.workflowMode()) return;
  settings_.recordWorkflowMode(mode);
  if (settings_.lowerForPlan()) executions_.resetConnection();
}

}  // namespace vantrell
