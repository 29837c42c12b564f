// The commands about projects: projects, context, hooks.
#include <fmt/format.h>

#include "engine/core/selection.h"
#include "engine/core/workspace_tree.h"
#include "engine/projects/hook_runner.h"
#include "engine/projects/project_context_service.h"
#include "engine/tasks/workspace_operations.h"
#include "platform/files/files.h"
#include "platform/text/text.h"
#include "project/context_discovery.h"
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

// ---- projects -----------------------------------------------------------------------------------

JsonObject asJson(const Workspace& workspace, bool isGeneral) {
  const auto row = views::projectRow(workspace, isGeneral);
  return {{"workspaceID", workspace.id.text()},
          {"name", workspace.name},
          {"path", workspace.path},
          {"isGeneral", isGeneral},
          {"isPinned", row.isPinned},
          {"tasks", static_cast<std::int64_t>(row.tasks)},
          {"archivedTasks", static_cast<std::int64_t>(row.archivedTasks)}};
}

void listProjects(CommandContext& context) {
  context.view([&](const StateView& state) {
    const auto json = [&](const views::ProjectRow& row) {
      return asJson(workspaceOf(state.workspaces, row.id), row.isGeneral);
    };
    const auto cells = [&](const views::ProjectRow& row) -> std::vector<TableCell> {
      return {{row.isPinned ? "*" : "", look::yellow},
              idCell(row.id),
              {row.name},
              {row.folder, look::dim},
              {fmt::format("{}", row.tasks)},
              {row.updatedAt ? ago(*row.updatedAt, state.now) : "", look::dim}};
    };
    return context.showList(
        views::projectRows(state.workspaces),
        TextTable({{""}, {"ID"}, {"NAME", 12}, {"FOLDER", 16, true}, {"TASKS"}, {"CHANGED"}}), json,
        cells, "");
  });
}

/// The project of the first word, in the opened state.
std::expected<Uuid, UsageError> projectOf(const CommandContext& context, AppModel& model) {
  return findProject(model.tree().workspaces(), context.word(0), context.caller.folder);
}

bool isGeneral(AppModel& model, const Uuid& id) {
  return id == model.operations().generalWorkspace()->id;
}

void report(CommandContext& context, const Uuid& id, std::string_view done) {
  const Workspace& workspace = *context.model().tree().workspace(id);
  context.report(asJson(workspace, isGeneral(context.model(), id)),
                 fmt::format("{}  {}: {}\n", shortID(id), done, onOneLine(workspace.name)));
}

void addProject(CommandContext& context) {
  const std::string folder = context.absolute(context.word(0));
  if (!files::isFolder(folder)) {
    return context.misused(
        fmt::format("There is no folder {}. Make it first, or give another one.", folder));
  }
  context.change([&](AppModel& model) {
    const std::size_t before = model.tree().workspaces().size();
    return context.after(model.operations().addWorkspace(folder), [&] {
      report(context, *model.selection().workspaceID(),
             model.tree().workspaces().size() > before ? "added" : "is a project already");
    });
  });
}

void removeProject(CommandContext& context) {
  context.open({}, [&context](VantrellApp& app) {
    AppModel& model = app.model();
    const auto id = projectOf(context, model);
    if (!id) return context.misused(id.error());
    if (isGeneral(model, *id)) {
      return context.misused(
          "General stays: it holds the conversations that belong to no project. Its tasks can be "
          "deleted with vantrell delete ID.");
    }
    const Workspace& workspace = *model.tree().workspace(*id);
    context.confirm(
        fmt::format("Forget the project \"{}\" and delete its {}? The folder {} is not touched. "
                    "This cannot be undone.",
                    onOneLine(workspace.name), counted(workspace.threads.size(), "task"),
                    onOneLine(withTilde(workspace.path))),
        [&, id = *id] {
          report(context, id, "removed");
          context.finish(context.after(model.operations().removeWorkspace(id), [] {}));
        });
  });
}

void pinProject(CommandContext& context) {
  context.change([&](AppModel& model) -> Outcome {
    const auto id = projectOf(context, model);
    if (!id) return std::unexpected(id.error());
    if (isGeneral(model, *id)) {
      return usageError("General is always first; there is no need to pin it.");
    }
    const bool pinned = !context.arguments.has("--off");
    return context.after(model.operations().setWorkspacePinned(*id, pinned),
                         [&] { report(context, *id, pinned ? "pinned" : "not pinned"); });
  });
}

void archiveProject(CommandContext& context) {
  context.change([&](AppModel& model) -> Outcome {
    const auto id = projectOf(context, model);
    if (!id) return std::unexpected(id.error());
    const std::size_t tasks = views::projectRow(*model.tree().workspace(*id), false).tasks;
    return context.after(model.operations().archiveWorkspaceThreads(*id),
                         [&] { report(context, *id, counted(tasks, "task") + " archived"); });
  });
}

constexpr CommandOption removeOptions[] = {yesOption, jsonOption};
constexpr CommandOption pinOptions[] = {{"--off", "", "no longer"}, jsonOption};
constexpr Command projectsCommands[] = {
    {"list", "", "list them", onlyJson, listProjects},
    {"add", "DIR", "make a folder a project, and select it", onlyJson, addProject},
    {"remove", "PROJECT", "forget a project and delete its tasks; its folder is not touched",
     removeOptions, removeProject},
    {"pin", "PROJECT", "list it before the others; with --off no longer", pinOptions, pinProject},
    {"archive", "PROJECT", "archive all its tasks, and begin a new one", onlyJson, archiveProject},
};

// ---- context ------------------------------------------------------------------------------------

/// What is known about a project, with its guidance as it is now, whatever was stored.
struct Known {
  Known(const Workspace& its, ProjectContextProfile stored)
      : workspace(its), profile(std::move(stored)) {
    profile.discoveredSources = discoverContextSources(workspace.path);
  }
  const Workspace& workspace;
  ProjectContextProfile profile;
};

JsonObject asJson(const Known& known) {
  const auto& [workspace, profile] = known;
  JsonObject all{{"workspaceID", workspace.id.text()},
                 {"project", workspace.name},
                 {"path", workspace.path},
                 {"summary", orNull(profile.summary())},
                 {"block", ProjectContextService::block(profile)}};
  const Json stored = projectContextAsJson(profile);
  if (const JsonObject* fields = stored.asObject()) {
    for (const auto& [key, value] : *fields) all.set(key, value);
  }
  return all;
}

std::string instructionsOf(const Known& known, const TerminalStyle&) {
  const auto& text = known.profile.instructions;
  return text.empty() ? text : text + "\n";
}

std::string blockOf(const Known& known, const TerminalStyle&) {
  const std::string text = ProjectContextService::block(known.profile);
  return text.empty() ? text : text + "\n";
}

std::string decisionsOf(const Known& known, const TerminalStyle& style) {
  std::string text;
  for (const auto& each : known.profile.decisions) {
    text += fmt::format("  {}: {} {}\n", onOneLine(each.title), onOneLine(each.detail),
                        style.dim(iso8601(each.createdAt).substr(0, 10)));
  }
  return text;
}

std::string sourcesOf(const Known& known, const TerminalStyle& style) {
  std::string text;
  for (const auto& each : known.profile.discoveredSources) {
    text += fmt::format("  {} {}\n", onOneLine(each.path),
                        style.dim(cutTo(onOneLine(each.summary), 60)));
  }
  return text;
}

std::string everythingOf(const Known& known, const TerminalStyle& style) {
  std::string text =
      fmt::format("{}  {}\n{}\n", style.bold(onOneLine(known.workspace.name)),
                  onOneLine(withTilde(known.workspace.path)),
                  known.profile.summary().value_or("Nothing is known. To tell agents something: "
                                                   "vantrell context instructions \"...\""));
  std::string pins;
  for (const auto& each : known.profile.pinnedFiles) pins += fmt::format("  {}\n", onOneLine(each));
  const std::pair<std::string_view, std::string> sections[] = {
      {"Instructions", sanitized(instructionsOf(known, style))},
      {"Pinned files", pins},
      {"Decisions", decisionsOf(known, style)},
      {"Guidance in the project", sourcesOf(known, style)}};
  for (const auto& [heading, body] : sections) {
    if (!body.empty()) text += fmt::format("\n{}\n{}", style.bold(heading), body);
  }
  return text;
}

template <std::string (*part)(const Known&, const TerminalStyle&)>
void showContext(CommandContext& context) {
  context.view([&](const StateView& state) -> Outcome {
    const auto id = context.projectHere(state.workspaces);
    if (!id) return std::unexpected(id.error());
    auto store = storedOrchestration();
    const Known known(workspaceOf(state.workspaces, *id),
                      loadStoredProjectContext(store, *id, state.now));
    context.report(asJson(known), part(known, context.style()));
    return exitStatus::completed;
  });
}

/// Changes the project's context and prints the sentence.
void changeContext(CommandContext& context, std::string_view sentence,
                   const std::function<Result<>(ProjectContextService&, const Uuid&)>& operation) {
  context.change([&](AppModel& model) -> Outcome {
    const auto id = context.projectHere(model.tree().workspaces());
    if (!id) return std::unexpected(id.error());
    return context.after(operation(model.context(), *id), [&] {
      const Workspace& workspace = *model.tree().workspace(*id);
      context.report(asJson(Known(workspace, model.context().profile(*id))),
                     fmt::format("{}: {}\n", onOneLine(workspace.name), sentence));
    });
  });
}

void setInstructions(CommandContext& context, const std::string& text) {
  changeContext(
      context,
      text::trimmed(text).empty() ? "there are no instructions now." : "the instructions are set.",
      [&](ProjectContextService& service, const Uuid& project) {
        return service.setProjectInstructions(text::repaired(text), project);
      });
}

void instructions(CommandContext& context) {
  if (context.arguments.words.empty()) return showContext<instructionsOf>(context);
  if (context.word(0) != "-") return setInstructions(context, context.word(0));
  context.readInput([&context](const std::string& text) { setInstructions(context, text); });
}

void addDecision(CommandContext& context) {
  const std::string title = text::repaired(context.word(0));
  const std::string detail = text::repaired(context.word(1));
  if (text::trimmed(title).empty() || text::trimmed(detail).empty()) {
    return context.misused("A decision has a title and a text; one of them is empty.");
  }
  changeContext(context, "the decision is kept.",
                [&](ProjectContextService& service, const Uuid& project) {
                  return service.addProjectDecision(title, detail, project);
                });
}

constexpr CommandOption projectOptions[] = {projectOption, jsonOption};
constexpr Command decisionCommands[] = {
    {"add", "TITLE TEXT", "keep a decision; the last 20 are told", projectOptions, addDecision},
};
constexpr Command contextCommands[] = {
    {"instructions", "[TEXT]",
     "show or set the standing instructions; - reads them from standard input", projectOptions,
     instructions},
    {"clear", "", "remove the instructions", projectOptions,
     [](CommandContext& context) { setInstructions(context, ""); }},
    {"decisions", "", "show the decisions", projectOptions, showContext<decisionsOf>, "", "",
     decisionCommands},
    {"sources", "", "the files of the project that guide agents, such as AGENTS.md", projectOptions,
     showContext<sourcesOf>},
    {"block", "", "what an agent gets, word by word; at most 18,000 characters", projectOptions,
     showContext<blockOf>},
};

// ---- hooks --------------------------------------------------------------------------------------

using Hooks = std::vector<ProjectHook>;

/// Read here, since another process may have written the file.
Hooks storedHooks(const CommandContext& context, const Uuid& project) {
  auto store = storedOrchestration();
  return loadStoredProjectContext(store, project, context.main.now()).hooks.value_or(Hooks());
}

/// The hook that the first word means: the beginning of its ID, or its path where only one has it.
std::expected<ProjectHook, UsageError> findHook(const CommandContext& context, const Hooks& hooks) {
  const auto& word = context.word(0);
  if (std::ranges::count(hooks, word, &ProjectHook::relativeExecutablePath) == 1) {
    return *std::ranges::find(hooks, word, &ProjectHook::relativeExecutablePath);
  }
  const auto found = findByID(hooks, word, "hook of the project", "hooks");
  if (!found) return std::unexpected(found.error());
  return **found;
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

struct HookRun {
  BackgroundPool pool{1};
  std::shared_ptr<ProjectHookService> service;
};

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
  const auto run = std::make_shared<HookRun>();
  context.keep(run);
  run->service = std::make_shared<ProjectHookService>(context.main, run->pool);
  run->service->run(
      *hook, *task ? executionPath(workspace, threadOf(workspaces, **task)) : workspace.path,
      [&context](const ProjectHookOutcome& outcome) {
        context.console.write(sanitized(outcome.text) + "\n");
        context.finish(outcome.succeeded ? exitStatus::completed : exitStatus::failed);
      });
}

constexpr CommandOption runHookOptions[] = {
    projectOption, {"--task", "ID", "where this task works, in its own worktree if it has one"}};
constexpr Command hooksCommands[] = {
    {"list", "", "list them", projectOptions, listHooks},
    {"add", "EVENT PATH", "run that file at every such event", projectOptions, addHook},
    {"remove", "HOOK", "run it no longer; the file is not touched", projectOptions, removeHook},
    {"run", "HOOK", "run it now, to try it; no task is told", runHookOptions, runHook},
};

// ---- their help ---------------------------------------------------------------------------------

constexpr Command commands[] = {
    {.name = "projects",
     .summary = "list, add and remove project folders",
     .options = onlyJson,
     .begin = listProjects,
     .closing = "remove asks first at a terminal; elsewhere it takes --yes.",
     .subcommands = projectsCommands},
    {.name = "context",
     .summary = "what every agent is told about a project",
     .options = projectOptions,
     .begin = showContext<everythingOf>,
     .introduction =
         "Shows what agents are told about the project before every prompt, or changes it. Files\n"
         "that guide agents are read, never changed.",
     .closing = "Examples:\n"
                "  vantrell context instructions \"Write tests first. Never touch vendor/.\"\n"
                "  vantrell context decisions add \"Database\" \"SQLite, one file for each user\"",
     .subcommands = contextCommands},
    {.name = "hooks",
     .summary = "programs of a project that run around its tasks",
     .options = projectOptions,
     .begin = listHooks,
     .introduction =
         "Lists the hooks of the project, or changes them. EVENT is beforeTask, afterTask or\n"
         "taskFailed; PATH is an executable file inside the project, relative to its folder; HOOK\n"
         "is the beginning of a hook's ID, or its path.",
     .closing =
         "A hook runs in the task's folder, without arguments and input, for 30 seconds at most,\n"
         "with VANTRELL_HOOK_EVENT and VANTRELL_WORKSPACE in its environment. What it prints\n"
         "becomes an entry of the conversation. It cannot stop a task.",
     .subcommands = hooksCommands},
};

}  // namespace

std::span<const Command> projectCommands() {
  return commands;
}

}  // namespace vantrell::shell
