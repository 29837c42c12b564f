// `vantrell compare`: one prompt to two providers, side by side. What the first does is shown as it
// comes, what the second does after it.
#include <fmt/format.h>

#include "engine/core/workspace_tree.h"
#include "engine/tasks/task_branches.h"
#include "engine/tasks/workspace_operations.h"
#include "platform/values/json.h"
#include "project/git_workspace_service.h"
#include "shell/terminal/command_groups.h"
#include "shell/terminal/run_plan.h"
#include "shell/terminal/task_words.h"

namespace vantrell::shell {

namespace {

struct Side {
  ThreadExecutionKey key;
  AgentProvider chosen;
  GitWorkspaceSnapshot changes;  // that it has made
};
using Sides = std::vector<Side>;

/// A task for each provider, at work on the prompt.
RunVariant::Conversations makeSides(CommandContext& context, const RunPlan& plan,
                                    const std::vector<AgentProvider>& providers,
                                    const ThreadExecutionKey& task, Sides& sides) {
  AppModel& model = context.model();
  const auto forks = model.branches().compareNextPrompt(task, plan.prompt, providers);
  if (!forks) return std::unexpected(context.refused(forks.error()));
  const std::vector<ThreadExecutionKey> keys(forks->begin(), forks->end());
  for (const auto& key : keys) {
    sides.push_back({key, *model.tree().thread(key)->preferredProvider, {}});
  }
  // One that was only made to be compared is of no more use.
  if (!plan.task && model.tree().thread(task)->entries.empty()) {
    static_cast<void>(model.navigation().selectThread(keys[0].threadID, keys[0].workspaceID));
    static_cast<void>(model.operations().deleteThread(task.threadID, task.workspaceID));
  }
  return keys;
}

JsonObject asJson(const Side& side, const ChatThread& thread) {
  Json::Array files;
  for (const auto& file : side.changes.files) {
    JsonObject object{{"path", file.path}, {"status", file.status}};
    setIfKnown(object, "additions", file.additions);
    setIfKnown(object, "deletions", file.deletions);
    files.push_back(std::move(object));
  }
  // Another provider may have taken over.
  const RunRecord* run = thread.latestRun();
  JsonObject result{{"event", "result"},
                    {"workspaceID", side.key.workspaceID.text()},
                    {"threadID", thread.id.text()},
                    {"comparisonGroupID", thread.comparisonGroupID->text()},
                    {"chosen", rawText(side.chosen)},
                    {"provider", rawText(run && run->provider ? *run->provider : side.chosen)},
                    {"path", *thread.isolatedWorkspacePath}};
  if (run) result.set("status", rawText(run->status));
  result.set("files", std::move(files));
  result.set("additions", side.changes.additions());
  result.set("deletions", side.changes.deletions());
  return result;
}

/// Says what each has changed, and ends the command.
void tellResults(CommandContext& context, const RunChoices& choices,
                 const std::shared_ptr<Sides>& sides, int status) {
  if (context.wasAbandoned) return context.finish(status);
  const auto threadOfSide = [&context](const Side& side) -> const ChatThread* {
    const ChatThread* thread = context.model().tree().thread(side.key);  // unless it was deleted
    return thread && thread->isolatedWorkspacePath ? thread : nullptr;
  };
  std::vector<std::string> folders;
  for (const auto& side : *sides) {
    const ChatThread* thread = threadOfSide(side);
    folders.push_back(thread ? *thread->isolatedWorkspacePath : "");
  }
  const auto read = [sides, folders] {
    for (std::size_t i = 0; i < folders.size(); ++i) {
      if (!folders[i].empty()) (*sides)[i].changes = GitWorkspaceService::read(folders[i]);
    }
  };
  context.inBackground(read, [&context, threadOfSide, choices, sides, status] {
    for (const auto& side : *sides) {
      const ChatThread* thread = threadOfSide(side);
      if (!thread) continue;
      const std::string words =
          fmt::format("\n{}: {} changed. To see the changes: vantrell diff {}\n",
                      context.style().bold(shortNameOf(side.chosen, choices)),
                      counted(side.changes.files.size(), "file"), shortID(thread->id));
      context.report(asJson(side, *thread), context.console.asTyped(words));
    }
    context.finish(status);
  });
}

void compare(CommandContext& context) {
  std::vector<AgentProvider> providers;
  for (const auto& word : context.arguments.values("--with")) {
    const auto provider = *fromRawText<AgentProvider>(word);
    if (std::ranges::find(providers, provider) == providers.end()) providers.push_back(provider);
  }
  if (providers.size() != 2) {
    return context.misused(
        "A comparison takes two providers: vantrell compare \"prompt\" --with codex "
        "--with claude");
  }
  withPlan(context, context.arguments.value(taskOption.name), true,
           [&context, providers](const RunPlan& plan) {
             const auto sides = std::make_shared<Sides>();
             RunVariant variant{.providers = providers, .start = hasBegun};
             variant.conversations = [&context, plan, providers, sides](
                                         AppModel&, const ThreadExecutionKey& task) {
               return makeSides(context, plan, providers, task, *sides);
             };
             const auto ended = [&context, choices = plan.choices, sides](int status) {
               tellResults(context, choices, sides, status);
             };
             beginRun(context, plan, std::move(variant), ended);
           });
}

constexpr CommandOption options[] = {
    {"--with", "ID", "one of the providers, as in codex; given twice", choicesOf<AgentProvider>},
    folderOption,
    taskOption,
    {"--practice", "", "let the practice agent stand in for local"},
    modeOption,
    workflowOption,
    answerOption,
    {"--json", "", "for scripts: one JSON object a line, each with the task's ID"},
};

constexpr Command commands[] = {
    {.name = "compare",
     .parameters = "\"prompt\"",
     .summary = "give one prompt to two providers, each in a worktree of its own",
     .options = options,
     .begin = compare,
     .introduction =
         "Makes two tasks, in the project or out of that of --task, and sends the prompt to a\n"
         "provider in each, at the same time. Each works in a Git worktree with a copy of all\n"
         "that is not committed; without Git there is no comparison. What the first does is shown\n"
         "as it comes and what the second does after it, and at last how many files each has\n"
         "changed.",
     .closing =
         "Ctrl-C stops both, a second one leaves at once. A prompt of - is read from standard\n"
         "input.\n"
         "\n"
         "Examples:\n"
         "  vantrell compare \"find out why the tests fail\" --with codex --with claude\n"
         "  vantrell compare --task 3F2A \"now fix it\" --with kimi --with codex"},
};

}  // namespace

std::span<const Command> compareCommands() {
  return commands;
}

}  // namespace vantrell::shell
