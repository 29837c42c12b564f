// What the commands about checkpoints and worktrees have in common: the selected task, waiting for
// the desk, and what it had to say. Blocks; main thread.
#pragma once

#include <functional>

#include "records/values/chat_thread.h"
#include "shell/terminal/task_change.h"

namespace vantrell::shell {

/// Opens the program with the task selected, lets the safety desk do something, waits until it is
/// done, and then reports with `report`. What goes wrong is told on standard error.
int withSafetyWork(
    const std::string& task,
    const std::function<std::expected<bool, UsageError>(ChangeContext&, const ChatThread&)>& begin,
    const std::function<void(ChangeContext&, const ThreadExecutionKey&)>& report);

}  // namespace vantrell::shell
