// `vantrell run`: from a plan to the exit status. Blocks; the calling thread becomes the main thread.
#pragma once

#include <string_view>

#include "shell/terminal/run_preparation.h"

namespace vantrell::shell {

/// Says it on standard error, as all that goes wrong is said.
void complain(std::string_view text);

/// Everything that `vantrell run` does.
int runCommand(RunArguments arguments, const Environment& environment);
/// The part behind the preparation.
int performRun(const RunPlan& plan, const Environment& environment);

}  // namespace vantrell::shell
