// The bytes of files that git would not give back as they are: a conversion of line ends writes
// mixed ones its own way, and a filter may leave something out on the way in. Blocks: never on the
// main queue.
#pragma once

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "project/patch_git.h"
#include "project/task_safety_error.h"
#include "project/tree_copy.h"

namespace vantrell {

/// Those of the paths whose bytes a filter, an identifier or an encoding changes on the way in or
/// out. A filter may leave something out, as the outputs of a notebook; no patch has that.
TaskSafetyResult<std::set<std::string, std::less<>>> filteredFiles(
    const PatchGit& git, const std::vector<std::string>& paths);

/// Copies those of the project's tracked files that go through a filter or a conversion into the
/// folder, which is made when there is one. A copy from before is replaced.
TaskSafetyResult<> recordUnfilteredContents(const PatchGit& git,
                                            const std::vector<std::string>& paths,
                                            const std::string& folder, WorkBudget& budget);

}  // namespace vantrell
