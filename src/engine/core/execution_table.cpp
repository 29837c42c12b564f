#include "engine/core/execution_table.h"

namespace vantrell {

ExecutionTable::ExecutionTable(MainQueue& main, Selection& selection, Changes& changes)
    : main_(main), selection_(selection), changes_(changes) {}

ThreadExecutionRuntime& ExecutionTable::execution(const ThreadExecutionKey& key) {
  auto& runtime = executions_[key];
  if (!runtime) runtime = std::make_unique<ThreadExecutionRuntime>(main_.now());
  return *runtime;
}

ThreadExecutionRuntime* ExecutionTable::find(const ThreadExecutionKey& key) {
  const auto found = executions_.find(key);
  return found == executions_.end() ? nullptr : found->second.get();
}

ThreadExecutionRuntime* ExecutionTable::findServedBy(const std::shared_ptr<AgentClient>& client,
                                                     const ThreadExecutionKey& key) {
  ThreadExecutionRuntime* runtime = find(key);
  return runtime && client && runtime->client == client ? runtime : nullptr;
}

std::vector<ThreadExecutionKey> ExecutionTable::keys() const {
  std::vector<ThreadExecutionKey> all;
  all.reserve(executions_.size());
  for (const auto& [key, runtime] : executions_) all.push_back(key);
  return all;
}

void ExecutionTable::publishExecution(const std::optional<ThreadExecutionKey>& key) {
  mirroredKey_ = key;
  if (const ThreadExecutionRuntime* runtime = key ? find(*key) : nullptr) {
    mirror_ = *runtime;
  } else {
    const auto owner = mirror_.permissionOwner;
    mirror_ = ExecutionViewState();
    mirror_.permissionOwner = owner;
  }
  showImagineQuestionIfFree();
  changes_.announce({.kind = Change::Kind::executionPublished, .conversation = key});
}

void ExecutionTable::publishExecutionIfSelected(const ThreadExecutionKey& key) {
  if (selection_.key() == key) publishExecution(key);
}

void ExecutionTable::showError(std::string text) {
  mirror_.errorMessage = std::move(text);
  announceMirror();
}

void ExecutionTable::announceMirror() {
  changes_.announce({.kind = Change::Kind::executionPublished, .conversation = mirroredKey_});
}

void ExecutionTable::appendToShownLog(std::string_view text) {
  mirror_.cliLog.append(text);
  changes_.announce({.kind = Change::Kind::executionPublished, .conversation = mirroredKey_});
}

void ExecutionTable::clearError() {
  if (!std::exchange(mirror_.errorMessage, std::nullopt)) return;
  changes_.announce({.kind = Change::Kind::executionPublished, .conversation = mirroredKey_});
}

void ExecutionTable::showImagineQuestionIfFree() {
  if (!imagineQuestion_ || mirror_.permissionRequest) return;
  mirror_.permissionOwner = PermissionOwner::imagine;
  mirror_.permissionRequest = imagineQuestion_;
}

void ExecutionTable::openImagineQuestion(PermissionRequest request) {
  imagineQuestion_ = std::make_shared<PermissionRequest>(std::move(request));
  if (mirror_.permissionOwner == PermissionOwner::imagine) mirror_.permissionRequest = nullptr;
  showImagineQuestionIfFree();
  announceMirror();
}

void ExecutionTable::closeImagineQuestion() {
  imagineQuestion_ = nullptr;
  if (mirror_.permissionOwner != PermissionOwner::imagine) return;
  mirror_.permissionOwner = PermissionOwner::build;
  mirror_.permissionRequest = nullptr;
  announceMirror();
}

void ExecutionTable::captureMirroredExecution() {
  ThreadExecutionRuntime* runtime = mirroredKey_ ? find(*mirroredKey_) : nullptr;
  if (!runtime) return;
  ExecutionViewState face = mirror_;
  if (mirror_.permissionOwner != PermissionOwner::build) {
    face.permissionOwner = runtime->permissionOwner;
    face.permissionRequest = runtime->permissionRequest;
  }
  static_cast<ExecutionViewState&>(*runtime) = std::move(face);
}

void ExecutionTable::selectExecution(std::optional<Uuid> workspaceID, std::optional<Uuid> threadID,
                                     std::optional<std::string> entryID) {
  selection_.select(workspaceID, threadID, std::move(entryID));
  publishExecution(selection_.key());
  const std::string entry = selection_.entryID().value_or("");
  changes_.announce(
      {.kind = Change::Kind::selectionChanged, .conversation = selection_.key(), .entryID = entry});
}

void ExecutionTable::resetConnection() {
  const auto key = selection_.key();
  if (key) remove(*key);
  publishExecution(key);
}

void ExecutionTable::remove(const ThreadExecutionKey& key) {
  const auto node = executions_.extract(key);
  if (node.empty()) return;
  end(*node.mapped(), key);
  if (const auto runID = node.mapped()->activeRunID; runID && onRunAbandoned) {
    onRunAbandoned(*runID, key);
  }
}

void ExecutionTable::end(ThreadExecutionRuntime& runtime, const ThreadExecutionKey& key) {
  runtime.endClient();
  if (onEnded) onEnded(runtime, key);
}

void ExecutionTable::setReceiving(bool receiving) {
  isReceiving_ = receiving;
  for (const auto& [key, runtime] : executions_) {
    if (runtime->client) runtime->client->setReceiving(receiving);
  }
}

void ExecutionTable::removeAll() {
  for (auto& [key, runtime] : std::exchange(executions_, {})) end(*runtime, key);
  publishExecution(selection_.key());
}

}  // namespace vantrell
