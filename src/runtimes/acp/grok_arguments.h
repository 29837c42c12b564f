// The command line of the Grok Build harness. A pure function.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "records/values/task_modes.h"

namespace vantrell {

/// Arguments of the Grok Build harness for a mode, a model and an effort. The mode stands in front
/// of the word "agent", full access behind it: the harness reads them in different places.
std::vector<std::string> agentArguments(GrokPermissionMode mode,
                                        const std::optional<std::string>& model,
                                        const std::optional<std::string>& effort);

}  // namespace vantrell
