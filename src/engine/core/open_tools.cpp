#include "engine/core/open_tools.h"

namespace vantrell {

void endOpenTools(ThreadExecutionRuntime& execution, const ThreadExecutionKey& key,
                  WorkspaceTree& tree) {
  for (const std::string& id : std::exchange(execution.openTools, {})) {
    tree.updateEntry(id, key, [](ChatEntry& entry) { entry.status = "failed"; });
  }
}

}  // namespace vantrell
