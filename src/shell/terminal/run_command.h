// A turn in the terminal, for `vantrell run` and the commands that begin one in another way.
// Blocks; the calling thread becomes the main thread.
#pragma once

#include "shell/terminal/run_preparation.h"

namespace vantrell {
class Settings;
}

namespace vantrell::shell {

/// Permission mode and workflow, for this process only. Planning never begins with full access.
void chooseModes(Settings& settings, const RunArguments& arguments);

/// What `vantrell run` does once its plan is made.
int performRun(const RunPlan& plan, const Environment& environment);

/// The same from the arguments on. Answers the status of wrong usage where there is no plan in
/// them.
int performRun(std::expected<RunArguments, UsageError> arguments, RunBeginning beginning,
               const Environment& environment);

}  // namespace vantrell::shell
