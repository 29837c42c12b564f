// What `branch` and `retry` have in common: a run that begins with a branch of a task. Main queue.
#pragma once

#include <functional>

#include "app/app_model.h"
#include "shell/terminal/run_preparation.h"

namespace vantrell::shell {

/// The place of the latest prompt in the transcript.
std::expected<std::size_t, UsageError> latestPrompt(const ChatThread& task);

/// `makeBranch` asks the engine for it; the run is in what is selected then.
RunBeginning beginningOfBranch(std::function<std::expected<void, UsageError>(
                                   AppModel&, const ChatThread& task, const std::string& prompt)>
                                   makeBranch);

}  // namespace vantrell::shell
