#include "records/values/tree_changes.h"

namespace vantrell {

TreeChanges TreeChanges::everywhere(const std::vector<Workspace>& workspaces) {
  TreeChanges changes{.structure = true, .threads = {}};
  for (const auto& workspace : workspaces) {
    for (const auto& thread : workspace.threads) {
      changes.threads[{workspace.id, thread.id}] = {.head = true, .allRuns = true, .runs = {}};
    }
  }
  return changes;
}

}  // namespace vantrell
