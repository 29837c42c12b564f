// `vantrell hooks`: programs of a project that run around its tasks.
#include <fmt/format.h>

#include "engine/core/workspace_tree.h"
#include "engine/projects/hook_runner.h"
#include "engine/projects/project_context_service.h"
#include "platform/files/files.h"
#include "platform/text/text.h"
#include "project/project_hook_service.h"
#include "records/stores/project_context_store.h"
#include "shell/terminal/command_groups.h"
#include "shell/terminal/run_plan.h"
#include "shell/terminal/stored_orchestration.h"
#include "shell/terminal/task_lookup.h"
#include "shell/terminal/task_words.h"
#include "shell/terminal/terminal_text.h"

namespace vantrell::shell {

namespace {

using Hooks = std::vector<ProjectHook>;

/// Read here, since another process may have written the file.
Hooks storedHooks(const CommandContext& context, const Uuid& project) {
  auto store = storedOrchestration();
  return loadStoredProjectContext(store, project, context.main.now()).hooks.value_or(Hooks());
}

/// The hook that the first word means: the beginning of its ID, or its path.
std::expected<ProjectHook, UsageError> findHook(const CommandContext& context, const Hooks& hooks) {
  const auto& word = context.word(0);
  Hooks found;
  std::ranges::copy_if(hooks, std::back_inserter(found), [&](const ProjectHook& hook) {
    return hook.relativeExecutablePath == word || beginsWith(hook.id, word);
  });
  if (found.size() == 1) return found.front();
  return std::unexpected(notExactlyOne(found.size(), "hook of the project", word, "hooks"));
}

bool isThere(const ProjectHook& hook, const std::string& folder) {
  return files::isExecutable(files::standardized(folder + "/" + hook.relativeExecutablePath));
}

JsonObject asJson(const ProjectHook& hook, const Uuid& project) {
  return {{"workspaceID", project.text()},
          {"id", hook.id.text()},
          {"event", rawText(hook.event)},
          {"relativeExecutablePath", hook.relativeExecutablePath},
          {"enabled", hook.enabled}};
}

void listHooks(CommandContext& context) {
  context.view([&](const StateView& state) -> Outcome {
    const auto project = context.projectHere(state.workspaces);
    if (!project) return std::unexpected(project.error());
    const auto& folder = workspaceOf(state.workspaces, *project).path;
    const auto cells = [&](const ProjectHook& hook) -> std::vector<TableCell> {
      return {idCell(hook.id),
              {std::string(rawText(hook.event))},
              {hook.relativeExecutablePath},
              !hook.enabled           ? TableCell{"off", look::dim}
              : isThere(hook, folder) ? TableCell{"ready", look::green}
                                      : TableCell{"missing", look::yellow}};
    };
    return context.showList(
        storedHooks(context, *project),
        TextTable({{"ID"}, {"RUNS"}, {"PROGRAM", 20, true}, {"STATE"}}),
        [&](const ProjectHook& hook) { return asJson(hook, *project); }, cells,
        "No hooks. To add one: vantrell hooks add afterTask .vantrell/hooks/after-task\n");
  });
}

void report(CommandContext& context, const ProjectHook& hook, const Uuid& project,
            std::string_view done) {
  context.report(asJson(hook, project),
                 fmt::format("{}  {}: {} {}\n", shortID(hook.id), done, rawText(hook.event),
                             onOneLine(hook.relativeExecutablePath)));
}

void addHook(CommandContext& context) {
  const auto event = fromRawText<ProjectHookEvent>(context.word(0));
  if (!event) {
    return context.misused(notAmong("The event", context.word(0), choicesOf<ProjectHookEvent>));
  }
  context.change([&](AppModel& model) -> Outcome {
    const auto project = context.projectHere(model.tree().workspaces());
    if (!project) return std::unexpected(project.error());
    const auto id = model.hooks().addProjectHook(*event, text::repaired(context.word(1)), *project);
    if (!id) return context.refused(id.error());
    const ProjectHook hook = model.context().profile(*project).hooks->back();
    report(context, hook, *project, "added");
    if (!isThere(hook, model.tree().workspace(*project)->path)) {
      context.complain(hook.relativeExecutablePath +
                       " is not an executable file yet; until it is, the hook is skipped.");
    }
    return exitStatus::completed;
  });
}

void removeHook(CommandContext& context) {
  context.change([&](AppModel& model) -> Outcome {
    const auto project = context.projectHere(model.tree().workspaces());
    if (!project) return std::unexpected(project.error());
    const auto hook = findHook(context, model.context().profile(*project).hooks.value_or(Hooks()));
    if (!hook) return std::unexpected(hook.error());
    return context.after(model.hooks().removeProjectHook(hook->id, *project),
                         [&] { report(context, *hook, *project, "removed"); });
  });
}

/// Without the state: the hook may use this program itself.
void runHook(CommandContext& context) {
  if (context.arguments.has("--task") && context.arguments.has("--project")) {
    return context.misused("A task belongs to its project. Leave out --project.");
  }
  const auto stored = context.stored();
  if (!stored) return context.fail(stored.error());
  const auto& workspaces = stored->workspaces;
  const auto task = context.givenTask(workspaces);
  if (!task) return context.misused(task.error());
  const auto project = *task ? (*task)->workspaceID : context.projectHere(workspaces);
  if (!project) return context.misused(project.error());
  const Workspace& workspace = workspaceOf(workspaces, *project);
  const auto hook = findHook(context, storedHooks(context, *project));
  if (!hook) return context.misused(hook.error());
  const auto service = std::make_shared<ProjectHookService>(context.main, context.pool());
  context.keep(service);
  service->run(*hook,
               *task ? executionPath(workspace, threadOf(workspaces, **task)) : workspace.path,
               [&context](const ProjectHookOutcome& outcome) {
                 context.console.write(sanitized(outcome.text) + "\n");
                 context.finish(outcome.succeeded ? exitStatus::completed : exitStatus::failed);
               });
}

constexpr CommandOption projectOptions[] = {projectOption, jsonOption};
constexpr CommandOption runHookOptions[] = {
    projectOption, {"--task", "ID", "where this task works, in its own worktree if it has one"}};
constexpr Command hooksCommands[] = {
    {"list", "", "list them", projectOptions, listHooks},
    {"add", "EVENT PATH", "run that file at every such event", projectOptions, addHook},
    {"remove", "HOOK", "run it no longer; the file is not touched", projectOptions, removeHook},
    {"run", "HOOK", "run it now, to try it; no task is told", runHookOptions, runHook},
};

constexpr Command commands[] = {
    {"hooks", "", "programs of a project that run around its tasks", projectOptions, listHooks,
     "Lists the hooks of the project, or changes them. EVENT is beforeTask, afterTask or\n"
     "taskFailed; PATH is an executable file inside the project, relative to its folder; HOOK\n"
     "is the beginning of a hook's ID, or its path.",
     "A hook runs in the task's folder, without arguments and input, for 30 seconds at most,\n"
     "with VANTRELL_HOOK_EVENT and VANTRELL_WORKSPACE in its environment. What it prints\n"
     "becomes an entry of the conversation. It cannot stop a task.",
     hooksCommands},
};

}  // namespace

std::span<const Command> hookCommands() {
  return commands;
}

}  // namespace vantrell::shell
