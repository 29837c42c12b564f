// The commands about projects, what agents are told of them, and the programs that run around their
// tasks: projects, context, hooks.
#include <fmt/format.h>

#include "app/user_state.h"
#include "engine/core/selection.h"
#include "engine/core/workspace_tree.h"
#include "engine/projects/hook_runner.h"
#include "engine/projects/project_context_service.h"
#include "engine/tasks/workspace_operations.h"
#include "platform/files/files.h"
#include "platform/text/text.h"
#include "project/context_discovery.h"
#include "project/project_hook_service.h"
#include "records/stores/orchestration_store.h"
#include "records/stores/project_context_store.h"
#include "shell/terminal/command_groups.h"
#include "shell/terminal/run_plan.h"
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

Outcome listProjects(CommandContext& context, const StateView& state) {
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
}

void report(CommandContext& context, const Uuid& id, std::string_view done) {
  const Workspace* workspace = context.model().tree().workspace(id);
  if (!workspace) return;  // removed by another command meanwhile
  context.report(asJson(*workspace, context.model().navigation().isGeneral(id)),
                 fmt::format("{}  {}: {}\n", shortID(id), done, onOneLine(workspace->name)));
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

/// Begins `work` with the project that the first word names.
void withProject(CommandContext& context,
                 const std::function<void(AppModel&, const Workspace&)>& work) {
  context.open({}, [&](VantrellApp& app) {
    const auto& all = app.model().tree().workspaces();
    const auto id = findProject(all, context.word(0), context.caller.folder);
    id ? work(app.model(), workspaceOf(all, *id)) : context.misused(id.error());
  });
}

void removeProject(CommandContext& context) {
  withProject(context, [&context](AppModel& model, const Workspace& workspace) {
    if (model.navigation().isGeneral(workspace.id)) {
      return context.misused(
          "General stays: it holds the conversations that belong to no project. Its tasks can be "
          "deleted with vantrell delete ID.");
    }
    context.confirm(
        fmt::format("Forget the project \"{}\" and delete its {}? The folder {} is not touched. "
                    "This cannot be undone.",
                    onOneLine(workspace.name), counted(workspace.threads.size(), "task"),
                    onOneLine(withTilde(workspace.path))),
        [&context, &model, id = workspace.id] {
          report(context, id, "removed");
          context.finish(context.after(model.operations().removeWorkspace(id), [] {}));
        });
  });
}

void pinProject(CommandContext& context) {
  withProject(context, [&](AppModel& model, const Workspace& workspace) {
    if (model.navigation().isGeneral(workspace.id)) {
      return context.misused("General is always first.");
    }
    const bool pinned = !context.arguments.has(offOption.name);
    const auto done = model.operations().setWorkspacePinned(workspace.id, pinned);
    context.finish(context.after(
        done, [&] { report(context, workspace.id, pinned ? "pinned" : "not pinned"); }));
  });
}

void archiveProject(CommandContext& context) {
  withProject(context, [&](AppModel& model, const Workspace& workspace) {
    const auto done = counted(views::projectRow(workspace, false).tasks, "task") + " archived";
    context.finish(context.after(model.operations().archiveWorkspaceThreads(workspace.id),
                                 [&] { report(context, workspace.id, done); }));
  });
}

constexpr Command projectsCommands[] = {
    {"list", "", "list them", onlyJson, viewing<listProjects>},
    {"add", "DIR", "make a folder a project, and select it", onlyJson, addProject},
    {"remove", "PROJECT", "forget a project and delete its tasks; its folder is not touched",
     yesAndJson, removeProject},
    {"pin", "PROJECT", "list it before the others; with --off no longer", offAndJson, pinProject},
    {"archive", "PROJECT", "archive all its tasks, and begin a new one", onlyJson, archiveProject},
};

// ---- context ------------------------------------------------------------------------------------

/// With the guidance in the folder as it is now, whatever was stored.
ProjectContextProfile current(ProjectContextProfile profile, const Workspace& workspace) {
  profile.discoveredSources = discoverContextSources(workspace.path);
  return profile;
}

JsonObject asJson(const Workspace& workspace, const ProjectContextProfile& profile) {
  JsonObject all{{"workspaceID", workspace.id.text()},
                 {"project", workspace.name},
                 {"path", workspace.path},
                 {"summary", orNull(profile.summary())},
                 {"block", ProjectContextService::block(profile)}};
  const Json stored = projectContextAsJson(profile);
  for (const auto& [key, value] : *stored.asObject()) all.set(key, value);
  return all;
}

std::string instructionsOf(const ProjectContextProfile& profile, const TerminalStyle&) {
  return profile.instructions.empty() ? "" : sanitized(profile.instructions) + "\n";
}

std::string blockOf(const ProjectContextProfile& profile, const TerminalStyle&) {
  const std::string text = ProjectContextService::block(profile);
  return text.empty() ? text : text + "\n";
}

std::string decisionsOf(const ProjectContextProfile& profile, const TerminalStyle& style) {
  std::string text;
  for (const auto& each : profile.decisions) {
    text += fmt::format("  {}: {} {}\n", onOneLine(each.title), onOneLine(each.detail),
                        style.dim(iso8601(each.createdAt).substr(0, 10)));
  }
  return text;
}

std::string sourcesOf(const ProjectContextProfile& profile, const TerminalStyle& style) {
  std::string text;
  for (const auto& each : profile.discoveredSources) {
    text += fmt::format("  {} {}\n", onOneLine(each.path),
                        style.dim(cutTo(onOneLine(each.summary), 60)));
  }
  return text;
}

std::string everythingOf(const ProjectContextProfile& profile, const TerminalStyle& style) {
  std::string text = profile.summary().value_or(
                         "Nothing is known. To tell agents something: vantrell context "
                         "instructions \"...\"") +
                     "\n";
  std::string pins;
  for (const auto& each : profile.pinnedFiles) pins += fmt::format("  {}\n", onOneLine(each));
  const std::pair<std::string_view, std::string> sections[] = {
      {"Instructions", instructionsOf(profile, style)},
      {"Pinned files", pins},
      {"Decisions", decisionsOf(profile, style)},
      {"Guidance in the project", sourcesOf(profile, style)}};
  for (const auto& [heading, body] : sections) {
    if (!body.empty()) text += fmt::format("\n{}\n{}", style.bold(heading), body);
  }
  return text;
}

template <std::string (*part)(const ProjectContextProfile&, const TerminalStyle&)>
Outcome showContext(CommandContext& context, const ProjectView& project) {
  auto store = UserFolders{}.orOwn().orchestrationForReading();
  const auto& workspace = project.workspace;
  const auto profile =
      current(loadStoredProjectContext(store, workspace.id, project.now), workspace);
  const std::string head =
      part == everythingOf
          ? fmt::format("{}  {}\n", context.style().bold(onOneLine(workspace.name)),
                        onOneLine(withTilde(workspace.path)))
          : "";
  return context.report(asJson(workspace, profile), head + part(profile, context.style()));
}

/// Changes the project's context and prints the sentence.
void changeContext(CommandContext& context, std::string_view sentence,
                   const std::function<Result<>(ProjectContextService&, const Uuid&)>& operation) {
  context.changeProject([&](AppModel& model, const Uuid& id) {
    return context.after(operation(model.context(), id), [&] {
      const Workspace& workspace = *model.tree().workspace(id);
      context.report(asJson(workspace, current(model.context().profile(id), workspace)),
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
  if (context.arguments.words.empty()) return viewing<showContext<instructionsOf>>(context);
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
    {"decisions", "", "show the decisions", projectOptions, viewing<showContext<decisionsOf>>, "",
     "", decisionCommands},
    {"sources", "", "the files of the project that guide agents, such as AGENTS.md", projectOptions,
     viewing<showContext<sourcesOf>>},
    {"block", "", "what an agent gets, word by word; at most 18,000 characters", projectOptions,
     viewing<showContext<blockOf>>},
};

// ---- hooks --------------------------------------------------------------------------------------

using Hooks = std::vector<ProjectHook>;

/// Read here, since another process may have written the file.
Hooks storedHooks(const Uuid& project, Date now) {
  auto store = UserFolders{}.orOwn().orchestrationForReading();
  return loadStoredProjectContext(store, project, now).hooks.value_or(Hooks());
}

/// The hook that the first word means: the beginning of its ID, or its path.
std::expected<ProjectHook, UsageError> findHook(const CommandContext& context, const Hooks& hooks) {
  Hooks found;
  std::ranges::copy_if(hooks, std::back_inserter(found), [&](const ProjectHook& hook) {
    return hook.relativeExecutablePath == context.word(0) || beginsWith(hook.id, context.word(0));
  });
  if (found.size() == 1) return found.front();
  return std::unexpected(
      notExactlyOne(found.size(), "hook of the project", context.word(0), "hooks"));
}

bool isThere(const ProjectHook& hook, const Workspace& workspace) {
  return files::isExecutable(
      files::standardized(workspace.path + "/" + hook.relativeExecutablePath));
}

JsonObject asJson(const ProjectHook& hook, const Uuid& project) {
  return {{"workspaceID", project.text()},
          {"id", hook.id.text()},
          {"event", rawText(hook.event)},
          {"relativeExecutablePath", hook.relativeExecutablePath},
          {"enabled", hook.enabled}};
}

Outcome listHooks(CommandContext& context, const ProjectView& project) {
  const auto& workspace = project.workspace;
  const auto json = [&](const ProjectHook& hook) { return asJson(hook, workspace.id); };
  const auto cells = [&](const ProjectHook& hook) -> std::vector<TableCell> {
    return {idCell(hook.id),
            {std::string(rawText(hook.event))},
            {hook.relativeExecutablePath},
            !hook.enabled              ? TableCell{"off", look::dim}
            : isThere(hook, workspace) ? TableCell{"ready", look::green}
                                       : TableCell{"missing", look::yellow}};
  };
  return context.showList(
      storedHooks(workspace.id, project.now),
      TextTable({{"ID"}, {"RUNS"}, {"PROGRAM", 20, true}, {"STATE"}}), json, cells,
      "No hooks. To add one: vantrell hooks add afterTask .vantrell/hooks/after-task\n");
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
  context.changeProject([&](AppModel& model, const Uuid& project) -> Outcome {
    const auto id = model.hooks().addProjectHook(*event, text::repaired(context.word(1)), project);
    if (!id) return context.refused(id.error());
    const ProjectHook hook = model.context().profile(project).hooks->back();
    report(context, hook, project, "added");
    if (!isThere(hook, *model.tree().workspace(project))) {
      context.complain(hook.relativeExecutablePath +
                       " is not an executable file yet; until it is, the hook is skipped.");
    }
    return exitStatus::completed;
  });
}

Outcome removeHook(CommandContext& context, AppModel& model, const Uuid& project) {
  const auto hook = findHook(context, model.context().profile(project).hooks.value_or(Hooks()));
  if (!hook) return std::unexpected(hook.error());
  return context.after(model.hooks().removeProjectHook(hook->id, project),
                       [&] { report(context, *hook, project, "removed"); });
}

/// Without the state: the hook may use this program itself.
void runHook(CommandContext& context) {
  const auto stored = context.stored();
  if (!stored) return context.fail(stored.error());
  const auto place = context.placeOf(context.arguments.value("--task"), stored->workspaces);
  if (!place) return context.misused(place.error());
  const auto hook = findHook(context, storedHooks(place->project, context.main.now()));
  if (!hook) return context.misused(hook.error());
  const auto service = std::make_shared<ProjectHookService>(context.main, context.pool());
  context.keep(service);
  service->run(*hook, place->folder, [&context](const ProjectHookOutcome& outcome) {
    context.console.write(sanitized(outcome.text) + "\n");
    context.finish(outcome.succeeded ? exitStatus::completed : exitStatus::failed);
  });
}

constexpr CommandOption runHookOptions[] = {
    projectOption, {"--task", "ID", "where this task works, in its own worktree if it has one"}};
constexpr Command hooksCommands[] = {
    {"list", "", "list them", projectOptions, viewing<listHooks>},
    {"add", "EVENT PATH", "run that file at every such event", projectOptions, addHook},
    {"remove", "HOOK", "run it no longer; the file is not touched", projectOptions,
     changing<removeHook>},
    {"run", "HOOK", "run it now, to try it; no task is told", runHookOptions, runHook},
};

// ---- their help ---------------------------------------------------------------------------------

constexpr Command commands[] = {
    {"projects", "", "list, add and remove project folders", onlyJson, viewing<listProjects>, "",
     "remove asks first at a terminal; elsewhere it takes --yes.", projectsCommands},
    {"context", "", "what every agent is told about a project", projectOptions,
     viewing<showContext<everythingOf>>,
     "Shows what agents are told about the project before every prompt, or changes it. Files\n"
     "that guide agents are read, never changed.",
     "Examples:\n"
     "  vantrell context instructions \"Write tests first. Never touch vendor/.\"\n"
     "  vantrell context decisions add \"Database\" \"SQLite, one file for each user\"",
     contextCommands},
    {"hooks", "", "programs of a project that run around its tasks", projectOptions,
     viewing<listHooks>,
     "Lists the hooks of the project, or changes them. EVENT is beforeTask, afterTask or\n"
     "taskFailed; PATH is an executable file inside the project, relative to its folder; HOOK\n"
     "is the beginning of a hook's ID, or its path.",
     "A hook runs in the task's folder, without arguments and input, for 30 seconds at most,\n"
     "with VANTRELL_HOOK_EVENT and VANTRELL_WORKSPACE in its environment. What it prints\n"
     "becomes an entry of the conversation. It cannot stop a task.",
     hooksCommands},
};

}  // namespace

std::span<const Command> projectCommands() {
  return commands;
}

}  // namespace vantrell::shell
