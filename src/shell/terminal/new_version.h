// The end of an update: the first start of the version that was installed, with the one before at
// hand until it has started. Blocks; the last thing that main() does.
#pragma once

#include <string>
#include <vector>

#include "platform/process/process.h"

namespace vantrell::shell {

/// Starts the new version, which opens the state and ends. If it does, the version before is
/// removed; if not, that takes its place again, and the error output says so. Then, if the program
/// is to go on, the one that is in place replaces this process, with the same arguments. Returns
/// the exit status otherwise: `status` after a start that went well.
int startNewVersion(bool goesOn, const std::vector<std::string>& arguments,
                    const Environment& environment, int status);

/// The word by which the new version is asked to do so.
inline constexpr const char* startedOption = "--started";

}  // namespace vantrell::shell
