#include "shell/terminal/task_branch.h"

namespace vantrell::shell {

std::expected<std::size_t, UsageError> latestPrompt(const ChatThread& task) {
  for (std::size_t i = task.entries.size(); i > 0; --i) {
    if (task.entries[i - 1].kind == ChatEntryKind::user) return i - 1;
  }
  return usageError("Nobody has given this task a prompt yet.");
}

RunBeginning beginningOfBranch(std::function<std::expected<void, UsageError>(
                                   AppModel&, const ChatThread& task, const std::string& prompt)>
                                   makeBranch) {
  RunBeginning beginning;
  beginning.conversation =
      [makeBranch = std::move(makeBranch)](
          AppModel& model, const ThreadExecutionKey& task,
          const std::string& prompt) -> std::expected<ThreadExecutionKey, UsageError> {
    const auto made = makeBranch(model, *model.tree.thread(task), prompt);
    if (!made) return std::unexpected(made.error());
    const auto selected = model.selection.key();
    if (selected && *selected != task) return *selected;
    return usageError("No prompt stands before that entry, so there is nothing to branch from.");
  };
  beginning.start = [](AppModel&) {};  // it goes out by itself
  return beginning;
}

}  // namespace vantrell::shell
