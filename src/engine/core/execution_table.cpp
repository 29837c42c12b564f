#include "engine/core/execution_table.h"

#include <utility>

namespace vantrell {

ExecutionTable::ExecutionTable(MainQueue& main, Changes& changes)
    : main_(main), changes_(changes) {}

ThreadExecutionRuntime& ExecutionTable::execution(const ThreadExecutionKey& key) {
  auto& runtime = executions_[key];
  if (!runtime) {
    runtime = std::make_unique<ThreadExecutionRuntime>(main_, main_.now());
    runtime->session->setReceiving(isReceiving_);
  }
  return *runtime;
}

const ThreadExecutionRuntime* ExecutionTable::find(const ThreadExecutionKey& key) const {
  const auto found = executions_.find(key);
  return found == executions_.end() ? nullptr : found->second.get();
}

ThreadExecutionRuntime* ExecutionTable::find(const ThreadExecutionKey& key) {
  return const_cast<ThreadExecutionRuntime*>(std::as_const(*this).find(key));
}

std::vector<ThreadExecutionKey> ExecutionTable::keys() const {
  std::vector<ThreadExecutionKey> all;
  all.reserve(executions_.size());
  for (const auto& [key, runtime] : executions_) all.push_back(key);
  return all;
}

std::unique_ptr<ThreadExecutionRuntime> ExecutionTable::take(const ThreadExecutionKey& key) {
  auto node = executions_.extract(key);
  return node.empty() ? nullptr : std::move(node.mapped());
}

bool ExecutionTable::isBusy(const ThreadExecutionKey& key) const {
  const auto* execution = find(key);
  return execution && execution->connectionState.isBusy();
}

bool ExecutionTable::hasOpenQuestion(const ThreadExecutionKey& key) const {
  const auto* execution = find(key);
  return execution && execution->permissionRequest();
}

bool ExecutionTable::canChangeSession(const std::optional<ThreadExecutionKey>& key) const {
  if (imagine_.state.isBusy() || imagine_.permissionRequest) return false;
  return !key || (!isBusy(*key) && !hasOpenQuestion(*key));
}

void ExecutionTable::setImagine(ImagineExecution imagine) {
  imagine_ = std::move(imagine);
  changes_.mark(topics::imagine);
}

void ExecutionTable::showError(std::string text) {
  errorMessage_ = std::move(text);
  changes_.mark(topics::error);
}

void ExecutionTable::clearError() {
  if (std::exchange(errorMessage_, std::nullopt)) changes_.mark(topics::error);
}

void ExecutionTable::dismissError(const std::optional<ThreadExecutionKey>& shown) {
  clearError();
  auto* runtime = shown ? find(*shown) : nullptr;
  if (runtime && std::exchange(runtime->errorMessage, std::nullopt)) changed(*shown);
}

void ExecutionTable::setReceiving(bool receiving) {
  isReceiving_ = receiving;
  for (const auto& [key, runtime] : executions_) runtime->session->setReceiving(receiving);
}

}  // namespace vantrell
