#include "platform/process/process_supervisor.h"

#include <atomic>
#include <fcntl.h>
#include <signal.h>

#include "platform/process/process_spawn.h"

namespace vantrell {

namespace {

std::atomic<ProcessSupervisor*> started = nullptr;

}  // namespace

ProcessSupervisor::ProcessSupervisor() {
  // A program started with SIGCHLD ignored would never see the exit of its children.
  struct sigaction action{};
  if (::sigaction(SIGCHLD, nullptr, &action) == 0 && action.sa_handler == SIG_IGN) {
    ::signal(SIGCHLD, SIG_DFL);
  }
  started = this;
}

ProcessSupervisor& ProcessSupervisor::shared() {
  static auto* const supervisor = new ProcessSupervisor;
  return *supervisor;
}

bool ProcessSupervisor::waitForAll(Duration limit) {
  ProcessSupervisor* const self = started;
  if (self == nullptr) return true;
  std::unique_lock lock(self->mutex_);
  return self->none_.wait_for(lock, limit, [self] { return self->children_.empty(); });
}

int ProcessSupervisor::nullDevice() {
  if (!null_) null_ = aboveStandard(Descriptor(::open("/dev/null", O_RDWR | O_CLOEXEC)));
  return null_.get();
}

void ProcessSupervisor::add(std::shared_ptr<ProcessChild> child) {
  const std::lock_guard lock(mutex_);
  children_.insert(std::move(child));
}

void ProcessSupervisor::remove(const std::shared_ptr<ProcessChild>& child) {
  const std::lock_guard lock(mutex_);
  children_.erase(child);
  if (children_.empty()) none_.notify_all();
}

}  // namespace vantrell
