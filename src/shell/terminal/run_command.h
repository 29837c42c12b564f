// `vantrell run`: from a plan to the exit status. Blocks; the calling thread becomes the main
// thread.
#pragma once

#include "shell/terminal/run_preparation.h"

namespace vantrell::shell {

/// Everything that `vantrell run` does.
int runCommand(RunArguments arguments, const Environment& environment);
/// The part behind the preparation.
int performRun(const RunPlan& plan, const Environment& environment);

}  // namespace vantrell::shell
