// Cuts a unified diff into hunks for review. Pure, any thread; any text will do.
#pragma once

#include <string_view>
#include <vector>

#include "records/values/git_workspace_snapshot.h"

namespace vantrell::UnifiedDiffParser {

/// The hunks in the order of the text. A text without one (a change of modes alone, say) is one
/// hunk with the header "Full diff"; an empty text has none.
std::vector<DiffHunk> parse(std::string_view text);

/// Whether the diff of a snapshot, which is bounded, is only the beginning of what git has.
bool isCut(std::string_view text);

}  // namespace vantrell::UnifiedDiffParser
