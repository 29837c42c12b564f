// What the desk of checkpoints and worktrees works with, from the composition root.
#pragma once

#include <string>

#include "platform/queues/dispatch.h"

namespace vantrell {

struct TaskSafetyMeans {
  /// Runs what blocks; must outlive the desk. Unset: every operation says that there is no
  /// repository.
  Executor* background = nullptr;
  std::string supportFolder;
};

}  // namespace vantrell
