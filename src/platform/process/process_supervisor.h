// All children of the program: the reactor, the guard and who is still there. Part of Process. Made
// at the first start and never destroyed, because children may outlive every other object.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <set>

#include "platform/process/process_guard.h"
#include "platform/process/process_reactor.h"

namespace vantrell {

class ProcessChild;

class ProcessSupervisor {
 public:
  /// Any thread.
  static ProcessSupervisor& shared();
  /// Any thread: whether no child is left, after at most `limit`.
  static bool waitForAll(Duration limit);

  ProcessReactor& reactor() { return reactor_; }

  // The reactor's thread only.

  ProcessGuard& guard() { return guard_; }
  /// The null device.
  int nullDevice();
  void add(std::shared_ptr<ProcessChild> child);
  void remove(const std::shared_ptr<ProcessChild>& child);

 private:
  ProcessSupervisor();

  ProcessReactor reactor_;
  ProcessGuard guard_{reactor_};
  Descriptor null_;
  std::mutex mutex_;
  std::condition_variable none_;
  std::set<std::shared_ptr<ProcessChild>> children_;
};

}  // namespace vantrell
