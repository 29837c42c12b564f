// The tools of a conversation that are under way, and their end: a runtime that was stopped or has
// died may never say how they ended, and nothing may stay "in progress" for ever. Main queue.
#pragma once

#include "engine/core/thread_execution_runtime.h"
#include "engine/core/workspace_tree.h"

namespace vantrell {

/// Marks those that are still under way as failed. A word that comes later all the same has its
/// way.
void endOpenTools(ThreadExecutionRuntime& execution, const ThreadExecutionKey& key,
                  WorkspaceTree& tree);

}  // namespace vantrell
