#include <fmt/format.h>
#include <unistd.h>

#include "app/user_state.h"
#include "platform/files/files.h"
#include "platform/queues/run_loop.h"
#include "platform/text/text.h"
#include "platform/values/json.h"
#include "project/project_hook_service.h"
#include "records/stores/orchestration_store.h"
#include "records/stores/project_context_store.h"
#include "shell/terminal/commands.h"
#include "shell/terminal/json_member.h"
#include "shell/terminal/plain_words.h"
#include "shell/terminal/state_view.h"
#include "shell/terminal/task_change.h"
#include "shell/terminal/task_lookup.h"
#include "shell/terminal/task_words.h"
#include "shell/terminal/terminal_text.h"

namespace vantrell::shell {

namespace {

constexpr CommandOption options[] = {
    {"--project", "PROJECT", "a project's name, folder or ID (default: the current folder)"},
    {"--task", "ID", "run: where this task works, in its own worktree if it has one"},
    {"--json", "", "for scripts: the hooks, one JSON object a line"},
};

using Hooks = std::vector<ProjectHook>;

std::string projectOf(const CommandArguments& arguments) {
  return arguments.value("--project").value_or(".");
}

/// Read here, since whoever else is at work may have written the file.
Hooks storedHooks(const Uuid& workspaceID) {
  const auto now = [] { return Date::current(); };
  OrchestrationStore store(UserFolders{}.orOwn().support, now, [](const auto&) {});
  return loadStoredProjectContext(store, workspaceID, now()).hooks.value_or(Hooks());
}

/// The hook that the word means: the beginning of its ID, or its path.
std::expected<ProjectHook, UsageError> findHook(const Hooks& hooks, std::string_view word) {
  const std::string wanted = text::lowercased(word);
  std::vector<const ProjectHook*> found;
  for (const auto& each : hooks) {
    const bool isMeant = each.relativeExecutablePath == word ||
                         (!word.empty() && text::lowercased(each.id.text()).starts_with(wanted));
    if (isMeant) found.push_back(&each);
  }
  if (found.size() == 1) return *found.front();
  return usageError(
      found.empty()
          ? fmt::format("The project has no hook {}. \"vantrell hooks\" lists them.",
                        onOneLine(word))
          : fmt::format("Several hooks are meant by {}. Give more of the ID; \"vantrell hooks\" "
                        "lists them.",
                        onOneLine(word)));
}

std::expected<ProjectHookEvent, UsageError> eventNamed(std::string_view word) {
  if (const auto event = fromRawText<ProjectHookEvent>(word)) return *event;
  return usageError(
      fmt::format("There is no event \"{}\".{} Hooks run beforeTask, afterTask or "
                  "taskFailed.",
                  onOneLine(word), suggestion(word, rawTexts(ProjectHookEvent{}))));
}

bool isThere(const ProjectHook& hook, const std::string& folder) {
  return files::isExecutable(files::standardized(folder + "/" + hook.relativeExecutablePath));
}

std::string asJson(const ProjectHook& hook, const Uuid& workspaceID) {
  std::string line;
  JsonWriter writer(line);
  writer.beginObject();
  member(writer, "workspaceID", workspaceID.text());
  member(writer, "id", hook.id.text());
  member(writer, "event", rawText(hook.event));
  member(writer, "relativeExecutablePath", hook.relativeExecutablePath);
  member(writer, "enabled", hook.enabled);
  writer.endObject();
  return line + "\n";
}

std::string tableOf(const Hooks& hooks, const std::string& folder, const TerminalStyle& style) {
  TextTable table({{"ID"},
                   {.heading = "RUNS"},
                   {.heading = "PROGRAM", .least = 20, .cutsFront = true},
                   {.heading = "STATE"}});
  for (const auto& each : hooks) {
    const TableCell state = !each.enabled           ? TableCell{"off", &TerminalStyle::dim}
                            : isThere(each, folder) ? TableCell{"ready", &TerminalStyle::green}
                                                    : TableCell{"missing", &TerminalStyle::yellow};
    table.add({{shortID(each.id), &TerminalStyle::cyan},
               {std::string(rawText(each.event))},
               {each.relativeExecutablePath},
               state});
  }
  return table.text(style, columnsForTables(STDOUT_FILENO));
}

int list(const CommandArguments& arguments, const Environment& environment) {
  return withStateView([&](const StateView& state) -> std::expected<int, UsageError> {
    const auto id = findProject(state.workspaces, projectOf(arguments));
    if (!id) return std::unexpected(id.error());
    const Hooks hooks = storedHooks(*id);
    StandardOutput out;
    if (arguments.has("--json")) {
      for (const auto& each : hooks) out.write(asJson(each, *id));
    } else if (hooks.empty()) {
      out.write(asTyped(
          "No hooks. To add one: vantrell hooks add afterTask .vantrell/hooks/after-task\n"));
    } else {
      out.write(tableOf(hooks, workspaceOf(state.workspaces, *id).path,
                        TerminalStyle::of(STDOUT_FILENO, environment)));
    }
    return out.finish(exitStatus::completed);
  });
}

void report(ChangeContext& context, const CommandArguments& arguments, const ProjectHook& hook,
            const Uuid& workspaceID, std::string_view done) {
  context.out.write(arguments.has("--json")
                        ? asJson(hook, workspaceID)
                        : fmt::format("{}  {}: {} {}\n", shortID(hook.id), done,
                                      rawText(hook.event), onOneLine(hook.relativeExecutablePath)));
}

/// What was changed, or why it is not stored.
int statusOf(const ChangeContext& context) {
  const auto& failure = context.model.context->saveFailure();
  if (failure.empty()) return exitStatus::completed;
  complain(
      fmt::format("The hooks could not be saved: {}. Free some space or make the folder "
                  "writable, then do it again.",
                  failure));
  return exitStatus::failed;
}

int add(const CommandArguments& arguments, const Environment&) {
  const auto event = eventNamed(arguments.words[1]);
  if (!event) return refuse(event.error());
  return changeTasks([&](ChangeContext& context) -> std::expected<int, UsageError> {
    const auto project = findProject(context.workspaces(), projectOf(arguments));
    if (!project) return std::unexpected(project.error());
    const auto id =
        context.model.hooks->addProjectHook(*event, text::repaired(arguments.words[2]), *project);
    if (!id) return exitStatus::failed;  // the refusal is told
    const ProjectHook hook = context.model.context->profile(*project).hooks->back();
    if (const int status = statusOf(context); status != exitStatus::completed) return status;
    report(context, arguments, hook, *project, "added");
    if (!isThere(hook, workspaceOf(context.workspaces(), *project).path)) {
      complain(fmt::format("{} is no executable file yet; until it is, the hook is skipped.",
                           onOneLine(hook.relativeExecutablePath)));
    }
    return exitStatus::completed;
  });
}

int remove(const CommandArguments& arguments, const Environment&) {
  return changeTasks([&](ChangeContext& context) -> std::expected<int, UsageError> {
    const auto project = findProject(context.workspaces(), projectOf(arguments));
    if (!project) return std::unexpected(project.error());
    const auto hook = findHook(context.model.context->profile(*project).hooks.value_or(Hooks()),
                               arguments.words[1]);
    if (!hook) return std::unexpected(hook.error());
    context.model.hooks->removeProjectHook(hook->id, *project);
    if (const int status = statusOf(context); status != exitStatus::completed) return status;
    report(context, arguments, *hook, *project, "removed");
    return exitStatus::completed;
  });
}

ProjectHookOutcome tryOut(const ProjectHook& hook, const std::string& folder) {
  ProjectHookOutcome outcome;
  RunLoop loop;
  BackgroundPool pool(1);
  const auto service = std::make_shared<ProjectHookService>(loop, pool);
  service->run(hook, folder, [&](ProjectHookOutcome found) {
    outcome = std::move(found);
    loop.quit();
  });
  loop.run();
  return outcome;
}

int run(const CommandArguments& arguments, const Environment&) {
  const auto task = arguments.value("--task");
  if (task && arguments.has("--project")) {
    return refuse({"A task belongs to its project. Leave out --project."});
  }
  ProjectHook hook;
  std::string folder;
  // The state is let go of first: the hook may use this program itself.
  const int found = withStateView([&](const StateView& state) -> std::expected<int, UsageError> {
    std::expected<Uuid, UsageError> project;
    if (task) {
      const auto key = findTask(state.workspaces, *task);
      if (!key) return std::unexpected(key.error());
      project = key->workspaceID;
      folder =
          executionPath(workspaceOf(state.workspaces, *project), threadOf(state.workspaces, *key));
    } else {
      project = findProject(state.workspaces, projectOf(arguments));
      if (!project) return std::unexpected(project.error());
      folder = workspaceOf(state.workspaces, *project).path;
    }
    auto meant = findHook(storedHooks(*project), arguments.words[1]);
    if (!meant) return std::unexpected(meant.error());
    hook = *std::move(meant);
    return exitStatus::completed;
  });
  if (found != exitStatus::completed) return found;
  const ProjectHookOutcome outcome = tryOut(hook, folder);
  StandardOutput out;
  out.write(sanitized(outcome.text) + "\n");
  return out.finish(outcome.succeeded ? exitStatus::completed : exitStatus::failed);
}

struct Action {
  std::string_view name;
  std::size_t words;  // the action's own included
  std::string_view usage;
  int (*perform)(const CommandArguments& arguments, const Environment& environment);
};
constexpr Action actions[] = {
    {"list", 1, "", list},
    {"add", 3, " EVENT PATH", add},
    {"remove", 2, " HOOK", remove},
    {"run", 2, " HOOK", run},
};

int hooks(const CommandArguments& arguments, const Environment& environment) {
  if (arguments.words.empty()) {
    if (arguments.has("--task")) return refuse({"--task goes with \"hooks run\" only."});
    return list(arguments, environment);
  }
  const std::string& name = arguments.words.front();
  const auto action = std::ranges::find(actions, name, &Action::name);
  if (action == std::end(actions)) {
    static constexpr std::string_view known[] = {"list", "add", "remove", "run"};
    return refuse(
        {fmt::format("There is no \"hooks {}\".{} \"vantrell hooks --help\" lists what there is.",
                     onOneLine(name), suggestion(name, known))});
  }
  if (arguments.words.size() != action->words) {
    return refuse(
        {fmt::format("It is typed so: vantrell hooks {}{}", action->name, action->usage)});
  }
  if (arguments.has("--task") && action->perform != run) {
    return refuse({"--task goes with \"hooks run\" only."});
  }
  return action->perform(arguments, environment);
}

}  // namespace

const Command hooksCommand{
    .name = "hooks",
    .parameters = "[add EVENT PATH | remove HOOK | run HOOK]",
    .summary = "programs of a project that run around its tasks",
    .options = options,
    .mostWords = 3,
    .introduction =
        "Alone: lists the hooks of the project. EVENT is beforeTask, afterTask or taskFailed;\n"
        "PATH is an executable file inside the project, relative to its folder; HOOK is the\n"
        "beginning of a hook's ID, or its path.\n"
        "\n"
        "  add EVENT PATH     run that file at every such event\n"
        "  remove HOOK        run it no longer; the file is not touched\n"
        "  run HOOK           run it now, to try it; no task hears of it",
    .closing =
        "A hook runs in the project's folder (or the task's worktree), without arguments and\n"
        "input, for 30 seconds at most, with this environment and VANTRELL_HOOK_EVENT and\n"
        "VANTRELL_WORKSPACE. What it prints becomes an entry of the conversation. It cannot\n"
        "stop a task.\n"
        "\n"
        "Exit status: 0 done, 1 failed or refused (run: also when the hook failed), 2 wrong\n"
        "usage.",
    .run = hooks,
};

}  // namespace vantrell::shell
