// The commands about projects: projects, context, hooks.
#include <fmt/format.h>

#include "engine/core/selection.h"
#include "engine/core/workspace_tree.h"
#include "engine/projects/hook_runner.h"
#include "engine/projects/project_context_service.h"
#include "engine/tasks/workspace_operations.h"
#include "platform/files/files.h"
#include "platform/text/text.h"
#include "platform/values/json.h"
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

std::string asJson(const Workspace& workspace, const views::ProjectRow& row) {
  return json::write(JsonObject{{"workspaceID", workspace.id.text()},
                                {"name", workspace.name},
                                {"path", workspace.path},
                                {"isGeneral", row.isGeneral},
                                {"isPinned", row.isPinned},
                                {"tasks", static_cast<std::int64_t>(row.tasks)},
                                {"archivedTasks", static_cast<std::int64_t>(row.archivedTasks)}}) +
         "\n";
}

void listProjects(CommandContext& context) {
  context.view([&](const StateView& state) -> Outcome {
    TextTable table({{""},
                     {"ID"},
                     {.heading = "NAME", .least = 12},
                     {.heading = "TASKS", .leavesAt = 1},
                     {.heading = "CHANGED", .leavesAt = 2},
                     {.heading = "FOLDER", .least = 16, .cutsFront = true}});
    for (const auto& each : views::projectRows(state.workspaces)) {
      if (context.isJson()) {
        context.console.write(asJson(workspaceOf(state.workspaces, each.id), each));
      }
      table.add({{each.isPinned ? "*" : "", &TerminalStyle::yellow},
                 {shortID(each.id), &TerminalStyle::cyan},
                 {each.name},
                 {fmt::format("{}", each.tasks)},
                 {each.updatedAt ? ago(*each.updatedAt, state.now) : "", &TerminalStyle::dim},
                 {each.folder, &TerminalStyle::dim}});
    }
    return context.showTable(table, false, "");
  });
}

void report(CommandContext& context, const Workspace& workspace, std::string_view done) {
  const bool isGeneral = &workspace == context.model().tree().workspaces().data();
  context.console.write(
      context.isJson()
          ? asJson(workspace, views::projectRow(workspace, isGeneral))
          : fmt::format("{}  {}: {}\n", shortID(workspace.id), done, onOneLine(workspace.name)));
}

void addProject(CommandContext& context) {
  const std::string folder = context.absolute(context.word(0));
  if (!files::isFolder(folder)) {
    return context.misused(
        fmt::format("There is no folder {}. Make it first, or give another one.", folder));
  }
  context.change([&](AppModel& model) -> Outcome {
    const std::size_t before = model.tree().workspaces().size();
    const auto done = model.operations().addWorkspace(folder);
    if (!done) return context.refused(done.error());
    const auto added = model.selection().workspaceID();
    report(context, *model.tree().workspace(*added),
           model.tree().workspaces().size() > before ? "added" : "is a project already");
    return exitStatus::completed;
  });
}

/// The project of the first word, in the opened state.
std::expected<const Workspace*, UsageError> projectOf(CommandContext& context) {
  const auto& workspaces = context.model().tree().workspaces();
  const auto id = findProject(workspaces, context.word(0), context.caller.folder);
  if (!id) return std::unexpected(id.error());
  return &workspaceOf(workspaces, *id);
}

bool isGeneral(AppModel& model, const Workspace& workspace) {
  return workspace.id == model.operations().generalWorkspace()->id;
}

void removeProject(CommandContext& context) {
  context.open({}, [&context](VantrellApp& app) {
    const auto project = projectOf(context);
    if (!project) return context.misused(project.error());
    const Workspace& workspace = **project;
    if (isGeneral(app.model(), workspace)) {
      return context.misused(
          "General stays: it holds the conversations that belong to no project. Its tasks can be "
          "deleted with vantrell delete ID.");
    }
    const std::size_t count = workspace.threads.size();
    context.confirm(
        fmt::format("Forget the project \"{}\" and delete its {} {}? The folder {} is not touched. "
                    "This cannot be undone.",
                    onOneLine(workspace.name), count, count == 1 ? "task" : "tasks",
                    onOneLine(withTilde(workspace.path))),
        [&context, &model = app.model(), id = workspace.id] {
          report(context, *model.tree().workspace(id), "removed");
          const auto done = model.operations().removeWorkspace(id);
          if (!done) return context.finish(context.refused(done.error()));
          context.finish(exitStatus::completed);
        });
  });
}

void pinProject(CommandContext& context) {
  context.change([&](AppModel& model) -> Outcome {
    const auto project = projectOf(context);
    if (!project) return std::unexpected(project.error());
    if (isGeneral(model, **project)) {
      return usageError("General is always first; there is no need to pin it.");
    }
    const bool pinned = !context.arguments.has("--off");
    const auto done = model.operations().setWorkspacePinned((*project)->id, pinned);
    if (!done) return context.refused(done.error());
    report(context, **project, pinned ? "pinned" : "not pinned");
    return exitStatus::completed;
  });
}

void archiveProject(CommandContext& context) {
  context.change([&](AppModel& model) -> Outcome {
    const auto project = projectOf(context);
    if (!project) return std::unexpected(project.error());
    const std::size_t count = views::projectRow(**project, false).tasks;
    const auto done = model.operations().archiveWorkspaceThreads((*project)->id);
    if (!done) return context.refused(done.error());
    report(context, **project, fmt::format("{} {} archived", count, count == 1 ? "task" : "tasks"));
    return exitStatus::completed;
  });
}

constexpr CommandOption jsonOnly[] = {jsonOption};
constexpr CommandOption removeOptions[] = {yesOption, jsonOption};
constexpr CommandOption pinOptions[] = {{"--off", "", "no longer"}, jsonOption};
constexpr Command projectsCommands[] = {
    {"list", "", "list them", jsonOnly, 0, 0, listProjects},
    {"add", "DIR", "make a folder a project, and select it", jsonOnly, 1, 1, addProject},
    {"remove", "PROJECT", "forget a project and delete its tasks; its folder is not touched",
     removeOptions, 1, 1, removeProject},
    {"pin", "PROJECT", "list it before the others; with --off no longer", pinOptions, 1, 1,
     pinProject},
    {"archive", "PROJECT", "archive all its tasks, and begin a new one", jsonOnly, 1, 1,
     archiveProject},
};

// ---- context ------------------------------------------------------------------------------------

std::expected<Uuid, UsageError> projectNamed(const CommandContext& context,
                                             const std::vector<Workspace>& workspaces) {
  return findProject(workspaces, context.arguments.value("--project").value_or("."),
                     context.caller.folder);
}

/// What is known about a project, with its guidance as it is now, whatever was stored.
struct Known {
  Known(const Workspace& its, ProjectContextProfile stored)
      : workspace(its), profile(std::move(stored)) {
    profile.discoveredSources = discoverContextSources(workspace.path);
  }
  const Workspace& workspace;
  ProjectContextProfile profile;
};

std::string asJson(const Known& known) {
  const auto& [workspace, profile] = known;
  const auto summary = profile.summary();
  JsonObject all{{"workspaceID", workspace.id.text()},
                 {"project", workspace.name},
                 {"path", workspace.path},
                 {"summary", summary ? Json(*summary) : Json()},
                 {"block", ProjectContextService::block(profile)}};
  const Json stored = projectContextAsJson(profile);
  if (const JsonObject* fields = stored.asObject()) {
    for (const auto& [key, value] : *fields) all.set(key, value);
  }
  return json::write(all) + "\n";
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
  const auto& profile = known.profile;
  std::string text =
      fmt::format("{}  {}\n{}\n", style.bold(onOneLine(known.workspace.name)),
                  onOneLine(withTilde(known.workspace.path)),
                  profile.summary().value_or("Nothing is known. To tell agents something: vantrell "
                                             "context instructions \"...\""));
  const auto section = [&](std::string_view heading, std::string_view body) {
    if (!body.empty()) text += fmt::format("\n{}\n{}", style.bold(heading), body);
  };
  if (!profile.instructions.empty()) {
    section("Instructions", sanitized(profile.instructions) + "\n");
  }
  std::string pins;
  for (const auto& each : profile.pinnedFiles) pins += fmt::format("  {}\n", onOneLine(each));
  section("Pinned files", pins);
  section("Decisions", decisionsOf(known, style));
  section("Guidance in the project", sourcesOf(known, style));
  return text;
}

std::string asLines(std::string text) {
  return text.empty() ? text : text + "\n";
}
std::string instructionsOf(const Known& known, const TerminalStyle&) {
  return asLines(known.profile.instructions);
}
std::string blockOf(const Known& known, const TerminalStyle&) {
  return asLines(ProjectContextService::block(known.profile));
}

template <std::string (*part)(const Known&, const TerminalStyle&)>
void showContext(CommandContext& context) {
  context.view([&](const StateView& state) -> Outcome {
    const auto id = projectNamed(context, state.workspaces);
    if (!id) return std::unexpected(id.error());
    auto store = storedOrchestration();
    const Known known(workspaceOf(state.workspaces, *id),
                      loadStoredProjectContext(store, *id, state.now));
    if (context.isJson()) {
      context.console.write(asJson(known));
    } else {
      context.console.say(part(known, context.style()));
    }
    return exitStatus::completed;
  });
}

/// Changes the project's context and prints the sentence, unless it could not be saved.
void changeContext(CommandContext& context,
                   const std::function<std::expected<std::string, UsageError>(
                       ProjectContextService&, const Workspace&)>& work) {
  context.change([&](AppModel& model) -> Outcome {
    const auto id = projectNamed(context, model.tree().workspaces());
    if (!id) return std::unexpected(id.error());
    const Workspace& workspace = *model.tree().workspace(*id);
    const auto sentence = work(model.context(), workspace);
    if (!sentence) return std::unexpected(sentence.error());
    context.console.write(context.isJson() ? asJson(Known(workspace, model.context().profile(*id)))
                                           : *sentence + "\n");
    return exitStatus::completed;
  });
}

void setInstructions(CommandContext& context, const std::string& given) {
  const std::string text = text::repaired(given);
  changeContext(context,
                [&](ProjectContextService& service,
                    const Workspace& workspace) -> std::expected<std::string, UsageError> {
                  const auto set = service.setProjectInstructions(text, workspace.id);
                  if (!set) return usageError(set.error().sentence);
                  const std::string stored = service.projectInstructions(workspace.id);
                  return fmt::format("{}: {}", onOneLine(workspace.name),
                                     stored.empty() ? "there are no instructions now."
                                                    : "the instructions are set.");
                });
}

void instructions(CommandContext& context) {
  if (context.arguments.words.empty()) return showContext<instructionsOf>(context);
  if (context.word(0) != "-") return setInstructions(context, context.word(0));
  context.readInput([&context](const std::string& text) { setInstructions(context, text); });
}

void clearInstructions(CommandContext& context) {
  setInstructions(context, "");
}

void addDecision(CommandContext& context) {
  const std::string title = text::repaired(context.word(0));
  const std::string detail = text::repaired(context.word(1));
  if (text::trimmed(title).empty() || text::trimmed(detail).empty()) {
    return context.misused("A decision has a title and a text; one of them is empty.");
  }
  changeContext(context,
                [&](ProjectContextService& service,
                    const Workspace& workspace) -> std::expected<std::string, UsageError> {
                  const auto added = service.addProjectDecision(title, detail, workspace.id);
                  if (!added) return usageError(added.error().sentence);
                  return fmt::format("{}: decision {} is kept.", onOneLine(workspace.name),
                                     service.profile(workspace.id).decisions.size());
                });
}

constexpr CommandOption contextOptions[] = {
    projectOption, {"--json", "", "for scripts: all of it as one JSON object"}};
constexpr Command decisionCommands[] = {
    {"add", "TITLE TEXT", "keep a decision; the last 20 are told", contextOptions, 2, 2,
     addDecision},
};
constexpr Command contextCommands[] = {
    {"instructions", "[TEXT]",
     "show or set the standing instructions; - reads them from standard input", contextOptions, 0,
     1, instructions},
    {"clear", "", "remove the instructions", contextOptions, 0, 0, clearInstructions},
    {"decisions", "", "show the decisions", contextOptions, 0, 0, showContext<decisionsOf>, "", "",
     decisionCommands},
    {"sources", "", "the files of the project that guide agents, such as AGENTS.md", contextOptions,
     0, 0, showContext<sourcesOf>},
    {"block", "", "what an agent gets, word by word; at most 18,000 characters", contextOptions, 0,
     0, showContext<blockOf>},
};

// ---- hooks --------------------------------------------------------------------------------------

using Hooks = std::vector<ProjectHook>;

/// Read here, since another process may have written the file.
Hooks storedHooks(const CommandContext& context, const Uuid& workspaceID) {
  auto store = storedOrchestration();
  return loadStoredProjectContext(store, workspaceID, context.main.now()).hooks.value_or(Hooks());
}

/// The hook that the word means: the beginning of its ID, or its path.
std::expected<ProjectHook, UsageError> findHook(const Hooks& hooks, std::string_view word) {
  const auto prefix = idPrefix(word);
  std::vector<const ProjectHook*> found;
  for (const auto& each : hooks) {
    const bool isMeant =
        each.relativeExecutablePath == word || (prefix && beginsWith(each.id, *prefix));
    if (isMeant) found.push_back(&each);
  }
  if (found.size() == 1) return *found.front();
  return usageError(fmt::format(
      "{} {}. \"vantrell hooks\" lists them.",
      found.empty() ? "The project has no hook" : "Several hooks match; give more of the ID than",
      onOneLine(word)));
}

bool isThere(const ProjectHook& hook, const std::string& folder) {
  return files::isExecutable(files::standardized(folder + "/" + hook.relativeExecutablePath));
}

std::string asJson(const ProjectHook& hook, const Uuid& workspaceID) {
  return json::write(JsonObject{{"workspaceID", workspaceID.text()},
                                {"id", hook.id.text()},
                                {"event", rawText(hook.event)},
                                {"relativeExecutablePath", hook.relativeExecutablePath},
                                {"enabled", hook.enabled}}) +
         "\n";
}

void listHooks(CommandContext& context) {
  context.view([&](const StateView& state) -> Outcome {
    const auto id = projectNamed(context, state.workspaces);
    if (!id) return std::unexpected(id.error());
    const Hooks hooks = storedHooks(context, *id);
    const auto& folder = workspaceOf(state.workspaces, *id).path;
    TextTable table({{"ID"},
                     {.heading = "RUNS"},
                     {.heading = "PROGRAM", .least = 20, .cutsFront = true},
                     {.heading = "STATE"}});
    for (const auto& each : hooks) {
      if (context.isJson()) context.console.write(asJson(each, *id));
      table.add({{shortID(each.id), &TerminalStyle::cyan},
                 {std::string(rawText(each.event))},
                 {each.relativeExecutablePath},
                 !each.enabled           ? TableCell{"off", &TerminalStyle::dim}
                 : isThere(each, folder) ? TableCell{"ready", &TerminalStyle::green}
                                         : TableCell{"missing", &TerminalStyle::yellow}});
    }
    return context.showTable(
        table, hooks.empty(),
        "No hooks. To add one: vantrell hooks add afterTask .vantrell/hooks/after-task\n");
  });
}

Outcome hookChanged(CommandContext& context, const ProjectHook& hook, const Uuid& workspaceID,
                    std::string_view done) {
  context.console.write(context.isJson() ? asJson(hook, workspaceID)
                                         : fmt::format("{}  {}: {} {}\n", shortID(hook.id), done,
                                                       rawText(hook.event),
                                                       onOneLine(hook.relativeExecutablePath)));
  return exitStatus::completed;
}

void addHook(CommandContext& context) {
  const auto event = fromRawText<ProjectHookEvent>(context.word(0));
  if (!event) {
    constexpr auto& events = choicesOf<ProjectHookEvent>;
    return context.misused(fmt::format("The event cannot be \"{}\"; use {}.{}",
                                       onOneLine(context.word(0)), alternatives(events),
                                       suggestion(context.word(0), events)));
  }
  context.change([&](AppModel& model) -> Outcome {
    const auto project = projectNamed(context, model.tree().workspaces());
    if (!project) return std::unexpected(project.error());
    const auto id = model.hooks().addProjectHook(*event, text::repaired(context.word(1)), *project);
    if (!id) return context.refused(id.error());
    const ProjectHook hook = model.context().profile(*project).hooks->back();
    auto outcome = hookChanged(context, hook, *project, "added");
    if (!isThere(hook, model.tree().workspace(*project)->path)) {
      context.complain(
          fmt::format("{} is not an executable file yet; until it is, the hook is "
                      "skipped.",
                      hook.relativeExecutablePath));
    }
    return outcome;
  });
}

void removeHook(CommandContext& context) {
  context.change([&](AppModel& model) -> Outcome {
    const auto project = projectNamed(context, model.tree().workspaces());
    if (!project) return std::unexpected(project.error());
    const auto hook =
        findHook(model.context().profile(*project).hooks.value_or(Hooks()), context.word(0));
    if (!hook) return std::unexpected(hook.error());
    const auto done = model.hooks().removeProjectHook(hook->id, *project);
    if (!done) return context.refused(done.error());
    return hookChanged(context, *hook, *project, "removed");
  });
}

struct HookRun {
  BackgroundPool pool{1};
  std::shared_ptr<ProjectHookService> service;
};

/// Without the state: the hook may use this program itself.
void runHook(CommandContext& context) {
  const auto task = context.arguments.value("--task");
  if (task && context.arguments.has("--project")) {
    return context.misused("A task belongs to its project. Leave out --project.");
  }
  const auto stored = context.stored();
  if (!stored) return context.fail(stored.error());
  const auto& workspaces = stored->workspaces;
  const auto key = task ? findTask(workspaces, *task) : ThreadExecutionKey{};
  if (!key) return context.misused(key.error());
  const auto project = task ? key->workspaceID : projectNamed(context, workspaces);
  if (!project) return context.misused(project.error());
  const Workspace& workspace = workspaceOf(workspaces, *project);
  const std::string folder =
      task ? executionPath(workspace, threadOf(workspaces, *key)) : workspace.path;
  const auto hook = findHook(storedHooks(context, *project), context.word(0));
  if (!hook) return context.misused(hook.error());
  const auto run = std::make_shared<HookRun>();
  context.keep(run);
  run->service = std::make_shared<ProjectHookService>(context.main, run->pool);
  run->service->run(*hook, folder, [&context](const ProjectHookOutcome& outcome) {
    context.console.write(sanitized(outcome.text) + "\n");
    context.finish(outcome.succeeded ? exitStatus::completed : exitStatus::failed);
  });
}

constexpr CommandOption hookOptions[] = {projectOption, jsonOption};
constexpr CommandOption runHookOptions[] = {
    projectOption, {"--task", "ID", "where this task works, in its own worktree if it has one"}};
constexpr Command hooksCommands[] = {
    {"list", "", "list them", hookOptions, 0, 0, listHooks},
    {"add", "EVENT PATH", "run that file at every such event", hookOptions, 2, 2, addHook},
    {"remove", "HOOK", "run it no longer; the file is not touched", hookOptions, 1, 1, removeHook},
    {"run", "HOOK", "run it now, to try it; no task is told", runHookOptions, 1, 1, runHook},
};

// ---- their help ---------------------------------------------------------------------------------

constexpr Command commands[] = {
    {.name = "projects",
     .summary = "list, add and remove project folders",
     .options = jsonOnly,
     .begin = listProjects,
     .introduction =
         "Lists the projects, or changes one. PROJECT is the name of one, its folder, or a\n"
         "beginning of its ID.",
     .closing = "remove asks first at a terminal; elsewhere it takes --yes.\n"
                "\n"
                "Exit status: 0 done, 1 failed or refused, 2 wrong usage, 130 not confirmed.",
     .subcommands = projectsCommands},
    {.name = "context",
     .summary = "what every agent is told about a project",
     .options = contextOptions,
     .begin = showContext<everythingOf>,
     .introduction =
         "Shows all that is known about the project. It comes before every prompt, so that all\n"
         "agents keep to the same standing orders. Files that guide agents are read, never\n"
         "changed.",
     .closing = "Examples:\n"
                "  vantrell context instructions \"Write tests first. Never touch vendor/.\"\n"
                "  vantrell context decisions add \"Database\" \"SQLite, one file for each user\"\n"
                "  vantrell context block --project website",
     .subcommands = contextCommands},
    {.name = "hooks",
     .summary = "programs of a project that run around its tasks",
     .options = hookOptions,
     .begin = listHooks,
     .introduction =
         "Lists the hooks of the project, or changes them. EVENT is beforeTask, afterTask or\n"
         "taskFailed; PATH is an executable file inside the project, relative to its folder; HOOK\n"
         "is the beginning of a hook's ID, or its path.",
     .closing =
         "A hook runs in the project's folder (or the task's worktree), without arguments and\n"
         "input, for 30 seconds at most, with this environment and VANTRELL_HOOK_EVENT and\n"
         "VANTRELL_WORKSPACE. What it prints becomes an entry of the conversation. It cannot\n"
         "stop a task.\n"
         "\n"
         "Exit status: 0 done, 1 failed or refused (run: also when the hook failed), 2 wrong\n"
         "usage.",
     .subcommands = hooksCommands},
};

}  // namespace

std::span<const Command> projectCommands() {
  return commands;
}

}  // namespace vantrell::shell
