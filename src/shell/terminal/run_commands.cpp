// The commands that let an agent work on one task: run, queue, retry, branch.
#include <fmt/format.h>
#include <fmt/ranges.h>

#include "engine/core/workspace_tree.h"
#include "engine/tasks/task_branches.h"
#include "engine/turns/composer.h"
#include "engine/turns/prompt_queue.h"
#include "platform/text/text.h"
#include "platform/values/json.h"
#include "shell/terminal/command_groups.h"
#include "shell/terminal/run_plan.h"
#include "shell/terminal/task_lookup.h"
#include "shell/terminal/task_words.h"
#include "shell/terminal/terminal_text.h"

namespace vantrell::shell {

namespace {

using Conversations = RunVariant::Conversations;
std::unexpected<Outcome> failure(std::string why) {
  return std::unexpected<Outcome>(usageError(std::move(why)));
}

constexpr CommandOption eventsOption{"--json", "", "for scripts: one JSON object a line"};

Outcome outcomeOf(CommandContext& context, const Result<>& result) {
  return result ? Outcome(exitStatus::completed) : context.refused(result.error());
}

// ---- run ----------------------------------------------------------------------------------------

void run(CommandContext& context) {
  withPlan(context, context.arguments.value(taskOption.name), true,
           [&context](RunPlan plan) { beginRun(context, std::move(plan)); });
}

constexpr CommandOption runOptions[] = {
    folderOption,
    taskOption,
    providerOption,
    executableOption,
    practiceOption,
    {"--model", "M", "model, kept with the task"},
    {"--effort", "E", "reasoning effort, kept with the task"},
    modeOption,
    workflowOption,
    attachOption,
    answerOption,
    eventsOption,
};

constexpr CommandOption turnOptions[] = {
    providerOption, executableOption, practiceOption, modeOption,
    workflowOption, answerOption,     eventsOption,
};

// ---- queue --------------------------------------------------------------------------------------

Outcome showQueue(CommandContext& context, const ChatThread& thread, Date now,
                  std::string_view whenEmpty) {
  TextTable table({{"PROMPT"}, {"GIVEN"}, {.heading = "TEXT", .least = 20}});
  for (const auto& each : thread.queuedPrompts) {
    Json::Array attachments;
    for (const auto& file : each.attachments) attachments.push_back(file.path);
    const auto count = attachments.size();
    if (context.isJson()) {
      context.writeJson(JsonObject{{"id", each.id.text()},
                                   {"text", each.text},
                                   {"attachments", std::move(attachments)},
                                   {"createdAt", each.createdAt.secondsSinceReference()}});
    }
    table.add({{shortID(each.id), &TerminalStyle::cyan},
               {ago(each.createdAt, now), &TerminalStyle::dim},
               {count == 0 ? each.text : fmt::format("{} (@{})", each.text, count)}});
  }
  return context.showTable(table, thread.queuedPrompts.empty(), whenEmpty);
}

Outcome listQueue(CommandContext& context, const TaskView& task) {
  return showQueue(context, task.thread, task.now, "The queue is empty.\n");
}

/// Changes the queue of the task that the first word names, and shows it.
void changeQueue(CommandContext& context,
                 const std::function<Outcome(AppModel&, const ThreadExecutionKey&)>& work) {
  context.changeTask([&](AppModel& model, const ThreadExecutionKey& key) -> Outcome {
    if (const auto outcome = work(model, key); outcome != exitStatus::completed) return outcome;
    return showQueue(context, *model.tree().thread(key), context.main.now(),
                     "The queue is empty now.\n");
  });
}

void addToQueue(CommandContext& context) {
  auto attachments = attachmentsOf(context);
  if (!attachments) return context.misused(attachments.error());
  withPrompt(context, context.word(1),
             [&context, attachments = *std::move(attachments)](const std::string& prompt) {
               changeQueue(context, [&](AppModel& model, const ThreadExecutionKey& key) {
                 const std::string text(text::trimmed(prompt));
                 return outcomeOf(context, model.queue().enqueuePrompt(text, attachments, key));
               });
             });
}

template <Result<> (PromptQueue::*operation)(const Uuid&, const ThreadExecutionKey&)>
void changePrompts(CommandContext& context) {
  changeQueue(context, [&](AppModel& model, const ThreadExecutionKey& key) -> Outcome {
    std::vector<Uuid> meant;
    for (const auto& word : std::span(context.arguments.words).subspan(1)) {
      const auto found = findByID(model.tree().thread(key)->queuedPrompts, word,
                                  "prompt in the queue", "queue " + shortID(key.threadID));
      if (!found) return std::unexpected(found.error());
      meant.push_back((*found)->id);
    }
    for (const auto& id : meant) {
      const auto done = (model.queue().*operation)(id, key);
      if (!done) return context.refused(done.error());
    }
    return exitStatus::completed;
  });
}

void clearQueue(CommandContext& context) {
  changeQueue(context, [&](AppModel& model, const ThreadExecutionKey& key) {
    return outcomeOf(context, model.queue().clearQueuedPrompts(key));
  });
}

void runQueue(CommandContext& context) {
  withPlan(context, context.word(0), false, [&context](RunPlan plan) {
    RunVariant variant;
    variant.conversations = [](AppModel& model, const ThreadExecutionKey& task) -> Conversations {
      if (!model.tree().thread(task)->queuedPrompts.empty()) return {{task}};
      return failure(fmt::format(
          "The queue of this task is empty. To add a prompt: vantrell queue add {} \"...\"",
          shortID(task.threadID)));
    };
    variant.start = [](AppModel& model, const ThreadExecutionKey& key) {
      return model.composer().runNextQueuedPrompt(key);
    };
    beginRun(context, std::move(plan), std::move(variant));
  });
}

constexpr CommandOption addOptions[] = {attachOption, jsonOption};
constexpr CommandOption queueOptions[] = {jsonOption};
constexpr Command queueCommands[] = {
    {"add", "ID \"prompt\"", "add a prompt at the end; - reads it from standard input", addOptions,
     addToQueue},
    {"front", "ID PROMPT", "send that prompt next; PROMPT is any beginning of its ID", queueOptions,
     changePrompts<&PromptQueue::moveQueuedPromptToFront>},
    {"remove", "ID PROMPT...", "remove prompts without sending them", queueOptions,
     changePrompts<&PromptQueue::removeQueuedPrompt>},
    {"clear", "ID", "remove all of them", queueOptions, clearQueue},
    {"run", "ID", "send the first, and go on to the end of the queue", turnOptions, runQueue},
};

// ---- branch, retry ------------------------------------------------------------------------------


/// A run in a branch of the task, which sends its prompt by itself.
void runBranch(CommandContext& context, bool takesPrompt,
               std::function<Result<ThreadExecutionKey>(AppModel&, const ThreadExecutionKey& task,
                                                        std::size_t entry, const RunPlan&)>
                   make) {
  withPlan(context, context.word(0), takesPrompt, [&context, make](const RunPlan& plan) {
    const auto from = context.arguments.value("--from");
    RunVariant variant;
    variant.conversations = [from, plan, make](AppModel& model,
                                               const ThreadExecutionKey& task) -> Conversations {
      const ChatThread& thread = *model.tree().thread(task);
      const auto place = from ? findEntry(thread, *from) : latestPrompt(thread);
      if (!place) return failure(place.error().text);
      const auto made = make(model, task, *place, plan);
      return made ? Conversations({*made}) : failure(made.error().sentence);
    };
    variant.start = hasBegun;
    beginRun(context, plan, std::move(variant));
  });
}

void branch(CommandContext& context) {
  runBranch(
      context, true,
      [](AppModel& model, const ThreadExecutionKey& task, std::size_t entry, const RunPlan& plan) {
        const std::string id = model.tree().thread(task)->entries[entry].id;
        return model.branches().branchAndSend(task, id, plan.prompt, plan.choices.provider);
      });
}

void retry(CommandContext& context) {
  runBranch(context, false,
            [](AppModel& model, const ThreadExecutionKey& task, std::size_t, const RunPlan& plan) {
              return model.branches().retry(task, plan.choices.provider);
            });
}

constexpr CommandOption branchOptions[] = {
    {"--from", "ENTRY", "the prompt to replace, or an entry after it (default: the latest prompt)"},
    providerOption,
    executableOption,
    practiceOption,
    modeOption,
    workflowOption,
    answerOption,
    eventsOption,
};

constexpr Command commands[] = {
    {.name = "run",
     .parameters = "\"prompt\"",
     .summary = "do one task here, in the terminal",
     .options = runOptions,
     .begin = run,
     .introduction =
         "Does one task with a coding agent and shows what it says and does. It asks before the\n"
         "agent acts, as far as the mode says so. A prompt of - is read from standard input.",
     .closing =
         "After -- comes the prompt, even if it begins with a dash. At a terminal, a line that is\n"
         "typed while the agent works is sent as the next prompt.\n"
         "Ctrl-C stops the task, a second one leaves at once.\n"
         "\n"
         "Examples:\n"
         "  vantrell run \"find out why the tests fail\"\n"
         "  vantrell run --workflow plan --attach notes.txt \"plan the next release\"\n"
         "  vantrell run --task 3F2A91C0 \"now write the changelog\"\n"
         "  vantrell run --json --answer reject_once - < prompt.txt | jq ."},
    {.name = "queue",
     .parameters = "ID",
     .summary = "the prompts that wait in a task: add, order, send",
     .options = queueOptions,
     .begin = viewing<listQueue>,
     .introduction =
         "Lists the prompts that wait in a task, the next one first. They are sent one after the\n"
         "other, each when the one before has completed. After a failure, a stop or a restart\n"
         "they wait for you, or for the next run of the task that completes.",
     .closing =
         "Exit status: 0 done, 1 failed, 2 wrong usage or nothing to run; of run that of its\n"
         "last prompt.\n"
         "\n"
         "Examples:\n"
         "  vantrell queue add 3F2A91C0 \"now write the changelog\"\n"
         "  vantrell queue run 3F2A91C0 --provider codex",
     .subcommands = queueCommands},
    {.name = "retry",
     .parameters = "ID",
     .summary = "send a task's latest prompt again, in a worktree of its own",
     .options = turnOptions,
     .begin = retry,
     .introduction =
         "A branch with the same words: a task with what was said before the latest prompt of\n"
         "another one, and that prompt once more. See \"vantrell branch --help\"."},
    {.name = "branch",
     .parameters = "ID \"prompt\"",
     .summary = "say an earlier prompt in other words, in a worktree of its own",
     .options = branchOptions,
     .begin = branch,
     .introduction =
         "Makes a task with what was said before a prompt of another one, and sends the new\n"
         "prompt in its place, with the same attachments. It works in a Git worktree of its own,\n"
         "with a copy of all that is not committed in the project; if that cannot be made, in the\n"
         "project's folder. The other task stays as it is. A prompt of - is read from standard\n"
         "input.",
     .closing = "Ctrl-C stops the task, a second one leaves at once.\n"
                "\n"
                "Examples:\n"
                "  vantrell show 3F2A --entries\n"
                "  vantrell branch 3F2A --from 9C01D2E3 \"find out why, and change nothing yet\"\n"
                "  vantrell branch 3F2A --provider claude \"fix it in the parser\""},
};

}  // namespace

std::span<const Command> runCommands() {
  return commands;
}

}  // namespace vantrell::shell
