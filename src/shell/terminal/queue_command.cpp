// `vantrell queue`: the prompts that wait in a task.
#include <algorithm>
#include <fmt/format.h>
#include <unistd.h>

#include "platform/text/text.h"
#include "platform/values/json.h"
#include "shell/terminal/commands.h"
#include "shell/terminal/run_command.h"
#include "shell/terminal/standard_output.h"
#include "shell/terminal/state_view.h"
#include "shell/terminal/task_change.h"
#include "shell/terminal/task_lookup.h"
#include "shell/terminal/task_words.h"
#include "shell/terminal/terminal_text.h"

namespace vantrell::shell {

namespace {

constexpr std::string_view attachOption = "--attach";
constexpr CommandOption options[] = {
    {attachOption, "PATH", "add: a file or folder to look at; may be given several times"},
    providerOption,
    executableOption,
    practiceOption,
    modeOption,
    workflowOption,
    answerOption,
    {"--json", "", "for scripts: the prompts that wait, or of run its events, one object a line"},
};

struct Action {
  std::string_view name;
  std::size_t fewestWords, mostWords;  // its own included
  std::string_view usage;
};
constexpr Action actions[] = {
    {"add", 3, 3, "queue add ID \"prompt\""},
    {"front", 3, 3, "queue front ID PROMPT"},
    {"remove", 3, std::string_view::npos, "queue remove ID PROMPT ..."},
    {"clear", 2, 2, "queue clear ID"},
    {"run", 2, 2, "queue run ID"},
};

std::string asJson(const QueuedPrompt& prompt) {
  Json::Array attachments;
  for (const auto& each : prompt.attachments) attachments.push_back(each.path);
  return json::write(JsonObject{{"id", prompt.id.text()},
                                {"text", prompt.text},
                                {"attachments", std::move(attachments)},
                                {"createdAt", prompt.createdAt.secondsSinceReference()}}) +
         "\n";
}

std::string asTable(const ChatThread& thread, Date now, const TerminalStyle& style) {
  TextTable table(
      {{"PROMPT"}, {.heading = "GIVEN", .leavesAt = 1}, {.heading = "TEXT", .least = 20}});
  for (const auto& each : thread.queuedPrompts) {
    const auto files = each.attachments.size();
    table.add({{shortID(each.id), &TerminalStyle::cyan},
               {ago(each.createdAt, now), &TerminalStyle::dim},
               {files == 0 ? each.text : fmt::format("{} (@{})", each.text, files)}});
  }
  return table.text(style, columnsForTables(STDOUT_FILENO));
}

int list(const CommandArguments& arguments, const Environment& environment) {
  return withStateView([&](const StateView& state) -> std::expected<int, UsageError> {
    const auto key = findTask(state.workspaces, arguments.words.front());
    if (!key) return std::unexpected(key.error());
    const ChatThread& thread = threadOf(state.workspaces, *key);
    StandardOutput out;
    if (arguments.has("--json")) {
      for (const auto& each : thread.queuedPrompts) out.write(asJson(each));
    } else if (thread.queuedPrompts.empty()) {
      out.write("Nothing waits.\n");
    } else {
      out.write(asTable(thread, state.now, TerminalStyle::of(STDOUT_FILENO, environment)));
    }
    return out.finish(exitStatus::completed);
  });
}

/// Opens the task, changes its queue, and shows what waits then.
int change(
    const CommandArguments& arguments, const Environment& environment,
    const std::function<std::optional<UsageError>(AppModel&, const ThreadExecutionKey&)>& work) {
  return changeTasks([&](ChangeContext& context) -> std::expected<int, UsageError> {
    const auto key = findTask(context.workspaces(), arguments.words[1]);
    if (!key) return std::unexpected(key.error());
    context.model.operations.selectThread(key->threadID, key->workspaceID);
    if (auto wrong = work(context.model, *key)) return std::unexpected(std::move(*wrong));
    const ChatThread& thread = threadOf(context.workspaces(), *key);
    if (arguments.has("--json")) {
      for (const auto& each : thread.queuedPrompts) context.out.write(asJson(each));
    } else if (thread.queuedPrompts.empty()) {
      context.out.write("Nothing waits any more.\n");
    } else {
      context.out.write(
          asTable(thread, context.model.main.now(), TerminalStyle::of(STDOUT_FILENO, environment)));
    }
    return exitStatus::completed;
  });
}

int add(const CommandArguments& arguments, const Environment& environment) {
  const auto plan = prepareRun({.attachments = arguments.values(attachOption),
                                .task = arguments.words[1],
                                .prompt = arguments.words[2]},
                               environment);
  if (!plan) return refuse(plan.error());
  return change(arguments, environment, [&](AppModel& model, const ThreadExecutionKey& key) {
    model.queue.enqueuePrompt(std::string(text::trimmed(plan->arguments.prompt)), plan->attachments,
                              key);
    return std::optional<UsageError>();
  });
}

std::expected<Uuid, UsageError> findPrompt(const ChatThread& thread, std::string_view word) {
  const auto prefix = idPrefix(word);
  std::vector<Uuid> found;
  for (const auto& each : thread.queuedPrompts) {
    if (prefix && beginsWith(each.id, *prefix)) found.push_back(each.id);
  }
  if (found.size() == 1) return found.front();
  return usageError(
      fmt::format("{} prompt that waits begins its ID with \"{}\". To see them: vantrell queue {}",
                  found.empty() ? "No" : "More than one", onOneLine(word), shortID(thread.id)));
}

int frontOrRemove(const CommandArguments& arguments, const Environment& environment) {
  return change(arguments, environment,
                [&](AppModel& model, const ThreadExecutionKey& key) -> std::optional<UsageError> {
                  std::vector<Uuid> meant;
                  for (std::size_t i = 2; i < arguments.words.size(); ++i) {
                    const auto found = findPrompt(*model.tree.thread(key), arguments.words[i]);
                    if (!found) return found.error();
                    meant.push_back(*found);
                  }
                  for (const auto& id : meant) {
                    if (arguments.words.front() == "front") {
                      model.queue.moveQueuedPromptToFront(id);
                    } else {
                      model.queue.removeQueuedPrompt(id);
                    }
                  }
                  return std::nullopt;
                });
}

int clear(const CommandArguments& arguments, const Environment& environment) {
  return change(arguments, environment, [](AppModel& model, const ThreadExecutionKey&) {
    model.queue.clearQueuedPrompts();
    return std::optional<UsageError>();
  });
}

int runQueue(const CommandArguments& arguments, const Environment& environment) {
  RunBeginning beginning;
  beginning.conversation = [](AppModel& model, const ThreadExecutionKey& task,
                              const std::string&) -> std::expected<ThreadExecutionKey, UsageError> {
    if (!model.tree.thread(task)->queuedPrompts.empty()) return task;
    return usageError(
        fmt::format("Nothing waits in this task. To add something: vantrell queue add "
                    "{} \"...\"",
                    shortID(task.threadID)));
  };
  beginning.start = [](AppModel& model) { model.queue.runNextQueuedPrompt(); };
  return performRun(readTurnOptions(arguments, arguments.words[1]), std::move(beginning),
                    environment);
}

std::optional<std::string> whatIsWrong(const CommandArguments& arguments, const Action* action) {
  const auto& words = arguments.words;
  if (!action && words.size() > 1) {
    std::vector<std::string_view> names;
    for (const auto& each : actions) names.push_back(each.name);
    return fmt::format("There is no \"queue {}\".{} \"vantrell queue --help\" lists what there is.",
                       onOneLine(words.front()), suggestion(words.front(), names));
  }
  if (action && (words.size() < action->fewestWords || words.size() > action->mostWords)) {
    return fmt::format("\"queue {}\" is used so: vantrell {}", action->name, action->usage);
  }
  const bool isRun = action && action->name == "run";
  const bool isAdd = action && action->name == "add";
  for (const auto& [option, value] : arguments.given) {
    const bool fits = option == "--json" || (option == attachOption ? isAdd : isRun);
    if (!fits) {
      return fmt::format("{} goes with \"queue {}\" only.", option,
                         option == attachOption ? "add" : "run");
    }
  }
  return std::nullopt;
}

int queue(const CommandArguments& arguments, const Environment& environment) {
  const auto found = std::ranges::find(actions, arguments.words.front(), &Action::name);
  const Action* action = found == std::end(actions) ? nullptr : found;
  if (auto wrong = whatIsWrong(arguments, action)) return refuse({*std::move(wrong)});
  if (!action) return list(arguments, environment);
  if (action->name == "add") return add(arguments, environment);
  if (action->name == "clear") return clear(arguments, environment);
  if (action->name == "run") return runQueue(arguments, environment);
  return frontOrRemove(arguments, environment);
}

}  // namespace

const Command queueCommand{
    .name = "queue",
    .parameters = "ID, or add, front, remove, clear or run ID ...",
    .summary = "the prompts that wait in a task: add, order, send",
    .options = options,
    .fewestWords = 1,
    .mostWords = std::string_view::npos,
    .introduction =
        "Prompts that wait in a task are sent one after the other, each when the one before has\n"
        "gone well. After a failure, a stop or a restart they wait for you, or for the next run\n"
        "of the task that goes well. ID is any beginning of a task's ID.\n"
        "\n"
        "  queue ID                     what waits, the next one first\n"
        "  queue add ID \"prompt\"        one more, at the end; - reads it from standard input\n"
        "  queue front ID PROMPT        that one next; PROMPT is any beginning of its ID\n"
        "  queue remove ID PROMPT ...   without sending them\n"
        "  queue clear ID               all of them\n"
        "  queue run ID                 send the first, and go on to the end of the queue",
    .closing =
        "Exit status: 0 done, 1 failed, 2 wrong usage or nothing to run; of run that of its\n"
        "last prompt.\n"
        "\n"
        "Examples:\n"
        "  vantrell queue add 3F2A91C0 \"now write the changelog\"\n"
        "  vantrell queue run 3F2A91C0 --provider codex",
    .run = queue,
};

}  // namespace vantrell::shell
