// `vantrell fork`: a copy of a task.
#include <fmt/format.h>
#include <unistd.h>

#include "platform/terminal/terminal.h"
#include "shell/terminal/commands.h"
#include "shell/terminal/plain_words.h"
#include "shell/terminal/task_change.h"
#include "shell/terminal/task_lookup.h"
#include "shell/terminal/task_words.h"

namespace vantrell::shell {

namespace {

constexpr CommandOption options[] = {
    {"--through", "ENTRY", "only up to this entry and with it, as show --entries names it"},
    {"--json", "", "for scripts: the new task, one JSON object"},
};

int fork(const CommandArguments& arguments, const Environment&) {
  return changeTasks([&](ChangeContext& context) -> std::expected<int, UsageError> {
    const auto key = findTask(context.workspaces(), arguments.words.front());
    if (!key) return std::unexpected(key.error());
    std::optional<std::string> through;
    if (const auto named = arguments.value("--through")) {
      const ChatThread& thread = threadOf(context.workspaces(), *key);
      const auto place = findEntry(thread, *named);
      if (!place) return std::unexpected(place.error());
      through = thread.entries[*place].id;
    }
    const auto id =
        context.model.branches->forkThread(key->threadID, key->workspaceID, through, true);
    const auto& workspace = workspaceOf(context.workspaces(), key->workspaceID);
    const ChatThread& made = *workspace.thread(*id);
    if (arguments.has("--json")) {
      context.out.write(taskAsJson(workspace, made));
      return exitStatus::completed;
    }
    context.out.write(fmt::format("{}  forked from {}: {}\n", shortID(*id), shortID(key->threadID),
                                  titleOf(made)));
    if (terminal::isTerminal(STDOUT_FILENO)) {
      context.out.write(
          asTyped(fmt::format("To go on: vantrell run --task {} \"...\"\n", shortID(*id))));
    }
    return exitStatus::completed;
  });
}

}  // namespace

const Command forkCommand{
    .name = "fork",
    .parameters = "ID",
    .summary = "copy a task, to go on with it in another way",
    .options = options,
    .fewestWords = 1,
    .mostWords = 1,
    .introduction =
        "Makes a task with what was said in another one, and its choices. It works in the\n"
        "project's folder and begins sessions of its own; the other one stays as it is. ID is\n"
        "any beginning of a task's ID.",
    .closing =
        "To say a prompt in other words: vantrell branch ID --from ENTRY \"prompt\"\n"
        "\n"
        "Exit status: 0 done, 1 failed, 2 wrong usage.",
    .run = fork,
};

}  // namespace vantrell::shell
