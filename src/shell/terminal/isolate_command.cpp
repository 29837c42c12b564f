#include <fmt/format.h>

#include "platform/values/json.h"
#include "shell/terminal/commands.h"
#include "shell/terminal/plain_words.h"
#include "shell/terminal/safety_work.h"
#include "shell/terminal/task_lookup.h"
#include "shell/terminal/task_words.h"
#include "shell/terminal/terminal_text.h"

namespace vantrell::shell {

namespace {

constexpr CommandOption options[] = {
    {"--json", "", "for scripts: where it works, as a JSON object"},
};

std::string asJson(const ThreadExecutionKey& key, const std::string& path) {
  std::string line;
  JsonWriter writer(line);
  writer.beginObject();
  writer.key("workspaceID");
  writer.value(key.workspaceID.text());
  writer.key("threadID");
  writer.value(key.threadID.text());
  writer.key("path");
  writer.value(path);
  writer.endObject();
  return line + "\n";
}

int isolate(const CommandArguments& arguments, const Environment&) {
  return withSafetyWork(
      arguments.words.front(),
      [](ChangeContext& context, const ChatThread&) -> std::expected<bool, UsageError> {
        context.model.safety->setTaskWorkspaceMode(TaskWorkspaceMode::isolated);
        return true;
      },
      [&](ChangeContext& context, const ThreadExecutionKey& key) {
        const auto& workspace = workspaceOf(context.workspaces(), key.workspaceID);
        const auto path = context.model.tree.executionPath(key).value_or("");
        if (arguments.has("--json")) return context.out.write(asJson(key, path));
        context.out.write(fmt::format("{}  works in {}\n", shortID(key.threadID), onOneLine(path)));
        if (path == workspace.path) {
          complain("Its worktree is gone, so it works in the project's folder again.");
        }
      });
}

}  // namespace

const Command isolateCommand{
    .name = "isolate",
    .parameters = "ID",
    .summary = "let a task work in a Git worktree of its own",
    .options = options,
    .fewestWords = 1,
    .mostWords = 1,
    .introduction =
        "Gives a task a Git worktree outside the project, with a copy of all that is not\n"
        "committed, and shows where it is. The project keeps everything. ID is any beginning of\n"
        "a task's ID.",
    .closing =
        "There is no way back: what the task changes reaches the project only by your own Git\n"
        "work. Ignored files are not copied.\n"
        "\n"
        "Exit status: 0 done, 1 failed, 2 wrong usage.",
    .run = isolate,
};

}  // namespace vantrell::shell
