// The walk-through for newcomers: one whole task with the practice agent, in a folder of its own.
#pragma once

#include "platform/process/process.h"

namespace vantrell::shell {

/// Answers the exit status.
int practiceTour(const Environment& environment);

}  // namespace vantrell::shell
