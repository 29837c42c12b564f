// `vantrell branch`: another prompt in place of an earlier one, in a task of its own.
#include <fmt/format.h>

#include "shell/terminal/commands.h"
#include "shell/terminal/run_command.h"
#include "shell/terminal/task_branch.h"
#include "shell/terminal/task_lookup.h"

namespace vantrell::shell {

namespace {

constexpr std::string_view fromOption = "--from";
constexpr CommandOption options[] = {
    {fromOption, "ENTRY",
     "the prompt to replace, or an entry behind it (default: the latest prompt)"},
    providerOption,
    executableOption,
    practiceOption,
    modeOption,
    workflowOption,
    answerOption,
    runJsonOption,
};

int branch(const CommandArguments& arguments, const Environment& environment) {
  auto run = readTurnOptions(arguments, arguments.words[0]);
  if (!run) return refuse(run.error());
  run->prompt = arguments.words[1];
  run->takesPrompt = true;
  RunBeginning beginning =
      beginningOfBranch([provider = run->provider, from = arguments.value(fromOption)](
                            AppModel& model, const ChatThread& task,
                            const std::string& prompt) -> std::expected<void, UsageError> {
        const auto place = from ? findEntry(task, *from) : latestPrompt(task);
        if (!place) return std::unexpected(place.error());
        model.branches->branchAndSend(std::string(task.entries[*place].id), prompt, provider);
        return {};
      });
  return performRun(std::move(run), std::move(beginning), environment);
}

}  // namespace

const Command branchCommand{
    .name = "branch",
    .parameters = "ID \"prompt\"",
    .summary = "say an earlier prompt in other words, in a worktree of its own",
    .options = options,
    .fewestWords = 2,
    .mostWords = 2,
    .introduction =
        "Makes a task with what was said before a prompt of another one, and sends the new\n"
        "prompt in its place, with the same attachments. It works in a Git worktree of its own,\n"
        "with a copy of all that is not committed in the project; where that cannot be made, in\n"
        "the project's folder. The other task stays as it is. ID is any beginning of a task's\n"
        "ID; a prompt of - is read from standard input.",
    .closing =
        "Ctrl-C stops the task, a second one leaves at once.\n"
        "\n"
        "Exit status: 0 completed, 1 failed, 2 wrong usage, 130 stopped.\n"
        "\n"
        "Examples:\n"
        "  vantrell show 3F2A --entries\n"
        "  vantrell branch 3F2A --from 9C01D2E3 \"find out why, and change nothing yet\"\n"
        "  vantrell branch 3F2A --provider claude \"fix it in the parser\"",
    .run = branch,
};

}  // namespace vantrell::shell
