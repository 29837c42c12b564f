// Which conversation a run goes on with, and who does it. Main queue.
#pragma once

#include "app/vantrell_app.h"
#include "platform/run_loop.h"
#include "shell/terminal/run_preparation.h"

namespace vantrell::shell {

/// `last` is the provider that worked on the task before. May wait for the login shell's PATH, and
/// runs the loop meanwhile, which must not be running already.
std::expected<AgentProvider, UsageError> chooseProvider(RunLoop& loop, VantrellApp& app,
                                                        const RunPlan& plan,
                                                        std::optional<AgentProvider> last);

/// Selects the conversation that the plan names, else an untouched one in the plan's folder.
/// Choices of the plan that belong to it are stored with it.
std::expected<ThreadExecutionKey, UsageError> openTask(AppModel& model, const RunPlan& plan,
                                                       AgentProvider provider);

}  // namespace vantrell::shell
