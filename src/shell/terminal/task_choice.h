// Which conversation a run goes on with, and who does it. Main queue.
#pragma once

#include "app/vantrell_app.h"
#include "platform/queues/run_loop.h"
#include "shell/terminal/run_preparation.h"

namespace vantrell::shell {

/// The conversation that openTask() will select, where it is there already.
std::expected<std::optional<ThreadExecutionKey>, UsageError> taskAtHand(const AppModel& model,
                                                                        const RunPlan& plan);

/// Each command is a process of its own: to the route, the provider that worked on the task last
/// is the one at work.
void countLastProviderAsActive(AppModel& model, const ThreadExecutionKey& task);

/// Who will take the turn: `named`, which then takes every turn of this process, else whom the
/// route gives it to. May wait for the login shell's PATH and for what the route depends on, and
/// runs the loop meanwhile, which must not be running already.
std::expected<AgentProvider, UsageError> chooseProvider(
    RunLoop& loop, VantrellApp& app, std::optional<AgentProvider> named,
    const std::optional<ThreadExecutionKey>& task);

/// Why a provider cannot be used now, and what helps.
std::string whatToDoFor(const VantrellApp& app, AgentProvider provider);

/// Selects the conversation that the plan names, else an untouched one in the plan's folder.
/// Choices of the plan that belong to it are stored with it.
std::expected<ThreadExecutionKey, UsageError> openTask(AppModel& model, const RunPlan& plan,
                                                       AgentProvider provider);

}  // namespace vantrell::shell
