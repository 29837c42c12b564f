// The commands about projects and what agents are told of them: projects, context.
#include <fmt/format.h>

#include "engine/core/selection.h"
#include "engine/core/workspace_tree.h"
#include "engine/projects/project_context_service.h"
#include "engine/tasks/workspace_operations.h"
#include "platform/files/files.h"
#include "platform/text/text.h"
#include "project/context_discovery.h"
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
  const Workspace* found = context.model().tree().workspace(id);
  if (!found) return;  // removed by another command meanwhile
  const Workspace& workspace = *found;
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

// ---- their help ---------------------------------------------------------------------------------

constexpr Command commands[] = {
    {"projects", "", "list, add and remove project folders", onlyJson, listProjects, "",
     "remove asks first at a terminal; elsewhere it takes --yes.", projectsCommands},
    {"context", "", "what every agent is told about a project", projectOptions,
     showContext<everythingOf>,
     "Shows what agents are told about the project before every prompt, or changes it. Files\n"
     "that guide agents are read, never changed.",
     "Examples:\n"
     "  vantrell context instructions \"Write tests first. Never touch vendor/.\"\n"
     "  vantrell context decisions add \"Database\" \"SQLite, one file for each user\"",
     contextCommands},
};

}  // namespace

std::span<const Command> projectCommands() {
  return commands;
}

}  // namespace vantrell::shell
