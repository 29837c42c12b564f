// The guard: one tiny companion process that ends the children's groups when this program dies
// without a word. It reads "+<group>" and "-<group>" lines from a pipe, and its end of file means
// that the program is gone. Part of Process, on the reactor's thread; without a shell on the
// machine there is no guard, and children still get their death signal.
#pragma once

#include <set>
#include <string>
#include <sys/types.h>

#include "platform/files/descriptor.h"
#include "platform/process/process_reactor.h"

namespace vantrell {

class ProcessGuard {
 public:
  explicit ProcessGuard(ProcessReactor& reactor) : reactor_(reactor) {}

  /// The pipe by which a new child announces its group, or -1. Starts the guard when needed.
  int descriptor();
  /// The group is there; `announced` when the child could tell the guard itself.
  void add(pid_t group, bool announced);
  void remove(pid_t group);
  /// The guard was told of a group that never came to be.
  void forget(pid_t group);

 private:
  void start();
  void tell(const std::string& line);
  void onExit();

  ProcessReactor& reactor_;
  std::set<pid_t> groups_;
  Descriptor pipe_;
  pid_t id_ = 0;
  Descriptor handle_;
  ProcessReactor::Watch exitWatch_;
  Duration lastStart_ = Duration::min();
  Timer restart_;
};

}  // namespace vantrell
