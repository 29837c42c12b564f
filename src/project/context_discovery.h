// Finds the files of a project that tell agents how to work in it. Blocks as long as the disk
// takes; any thread.
#pragma once

#include <string>
#include <vector>

#include "records/values/project_context.h"

namespace vantrell {

/// The guidance in the folder, the files that have a name of their own first, then those of
/// .cursor/rules in the order in which the system lists them. A file that cannot be read, is larger
/// than 1,000,000 bytes, is not UTF-8 or has no text is left out. Never fails.
std::vector<ProjectContextSource> discoverContextSources(const std::string& root);

}  // namespace vantrell
