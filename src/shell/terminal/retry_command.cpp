// `vantrell retry`: the latest prompt of a task once more, in a task of its own.
#include "shell/terminal/commands.h"
#include "shell/terminal/run_command.h"
#include "shell/terminal/task_branch.h"

namespace vantrell::shell {

namespace {

constexpr CommandOption options[] = {
    providerOption, executableOption, practiceOption, modeOption,
    workflowOption, answerOption,     runJsonOption,
};

int retry(const CommandArguments& arguments, const Environment& environment) {
  auto run = readTurnOptions(arguments, arguments.words[0]);
  if (!run) return refuse(run.error());
  RunBeginning beginning = beginningOfBranch(
      [provider = run->provider](AppModel& model, const ChatThread& task,
                                 const std::string&) -> std::expected<void, UsageError> {
        const auto place = latestPrompt(task);
        if (!place) return std::unexpected(place.error());
        model.branches->retry(provider);
        return {};
      });
  return performRun(std::move(run), std::move(beginning), environment);
}

}  // namespace

const Command retryCommand{
    .name = "retry",
    .parameters = "ID",
    .summary = "send a task's latest prompt again, in a worktree of its own",
    .options = options,
    .fewestWords = 1,
    .mostWords = 1,
    .introduction =
        "A branch with no new words: a task with what was said before the latest prompt of\n"
        "another one, and that prompt once more. See \"vantrell branch --help\".",
    .closing = "Exit status: 0 completed, 1 failed, 2 wrong usage, 130 stopped.",
    .run = retry,
};

}  // namespace vantrell::shell
