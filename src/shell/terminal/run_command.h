// `vantrell run`: from a plan to the exit status. Blocks; the calling thread becomes the main
// thread.
#pragma once

#include "shell/terminal/run_preparation.h"

namespace vantrell::shell {

/// What `vantrell run` does once its plan is made.
int performRun(const RunPlan& plan, const Environment& environment);

}  // namespace vantrell::shell
