#include <fmt/format.h>
#include <unistd.h>

#include "platform/files/files.h"
#include "platform/values/json.h"
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
    offOption,
    yesOption,
    {"--json", "", "for scripts: the projects, one JSON object a line"},
};

std::string asJson(const Workspace& workspace, const views::ProjectRow& row) {
  std::string line;
  JsonWriter writer(line);
  writer.beginObject();
  member(writer, "workspaceID", workspace.id.text());
  member(writer, "name", workspace.name);
  member(writer, "path", workspace.path);
  member(writer, "isGeneral", row.isGeneral);
  member(writer, "isPinned", row.isPinned);
  member(writer, "tasks", static_cast<std::int64_t>(row.tasks));
  member(writer, "archivedTasks", static_cast<std::int64_t>(row.archivedTasks));
  writer.endObject();
  return line + "\n";
}

std::string tableOf(const StateView& state, const TerminalStyle& style) {
  TextTable table({{""},
                   {"ID"},
                   {.heading = "NAME", .least = 12},
                   {.heading = "TASKS", .leavesAt = 1},
                   {.heading = "CHANGED", .leavesAt = 2},
                   {.heading = "FOLDER", .least = 16, .cutsFront = true}});
  for (const auto& each : views::projectRows(state.workspaces)) {
    table.add({{each.isPinned ? "*" : "", &TerminalStyle::yellow},
               {shortID(each.id), &TerminalStyle::cyan},
               {each.name},
               {fmt::format("{}", each.tasks)},
               {each.updatedAt ? ago(*each.updatedAt, state.now) : "", &TerminalStyle::dim},
               {each.folder, &TerminalStyle::dim}});
  }
  return table.text(style, columnsForTables(STDOUT_FILENO));
}

int list(const CommandArguments& arguments, const Environment& environment) {
  return withStateView([&](const StateView& state) -> std::expected<int, UsageError> {
    StandardOutput out;
    if (!arguments.has("--json")) {
      out.write(tableOf(state, TerminalStyle::of(STDOUT_FILENO, environment)));
      return out.finish(exitStatus::completed);
    }
    for (const auto& each : views::projectRows(state.workspaces)) {
      out.write(asJson(workspaceOf(state.workspaces, each.id), each));
    }
    return out.finish(exitStatus::completed);
  });
}

void report(ChangeContext& context, const CommandArguments& arguments, const Workspace& workspace,
            std::string_view done) {
  const auto row = views::projectRow(workspace, &workspace == context.workspaces().data());
  context.out.write(arguments.has("--json") ? asJson(workspace, row)
                                            : fmt::format("{}  {}: {}\n", shortID(workspace.id),
                                                          done, onOneLine(workspace.name)));
}

int add(const CommandArguments& arguments) {
  const std::string folder = files::standardized(files::expandingTilde(arguments.words[1]));
  if (!files::isFolder(folder)) {
    return refuse({fmt::format("There is no folder {}. Make it first, or give another one.",
                               onOneLine(folder))});
  }
  return changeTasks([&](ChangeContext& context) -> std::expected<int, UsageError> {
    const std::size_t before = context.workspaces().size();
    context.model.operations.addWorkspace(folder);
    const bool isNew = context.workspaces().size() > before;
    report(context, arguments,
           workspaceOf(context.workspaces(), *context.model.selection.workspaceID()),
           isNew ? "added" : "is a project already");
    return exitStatus::completed;
  });
}

using Change = std::expected<int, UsageError> (*)(ChangeContext&, const CommandArguments&,
                                                  const Workspace&);

std::expected<int, UsageError> remove(ChangeContext& context, const CommandArguments& arguments,
                                      const Workspace& workspace) {
  if (workspace.id == context.model.operations.generalWorkspace()->id) {
    return usageError(
        "General stays: it holds the conversations that belong to no project. Its tasks can be "
        "deleted with vantrell delete ID.");
  }
  const std::size_t count = workspace.threads.size();
  const auto mayDo = confirmed(
      arguments,
      fmt::format("Forget the project \"{}\" and delete its {} {}? The folder {} is not touched. "
                  "This cannot be taken back.",
                  onOneLine(workspace.name), count, count == 1 ? "task" : "tasks",
                  onOneLine(withTilde(workspace.path))));
  if (!mayDo) return std::unexpected(mayDo.error());
  if (!*mayDo) return exitStatus::stopped;
  report(context, arguments, workspace, "removed");
  context.model.operations.removeWorkspace(workspace.id);
  return exitStatus::completed;
}

std::expected<int, UsageError> pin(ChangeContext& context, const CommandArguments& arguments,
                                   const Workspace& workspace) {
  if (workspace.id == context.model.operations.generalWorkspace()->id) {
    return usageError("General is always first; there is no need to pin it.");
  }
  const bool pinned = !arguments.has("--off");
  context.model.operations.setWorkspacePinned(workspace.id, pinned);
  report(context, arguments, workspace, pinned ? "pinned" : "not pinned");
  return exitStatus::completed;
}

std::expected<int, UsageError> archive(ChangeContext& context, const CommandArguments& arguments,
                                       const Workspace& workspace) {
  const std::size_t count = views::projectRow(workspace, false).tasks;
  context.model.operations.archiveWorkspaceThreads(workspace.id);
  if (!context.model.executions.mirror().errorMessage) {
    report(context, arguments, workspace,
           fmt::format("{} {} archived", count, count == 1 ? "task" : "tasks"));
  }
  return exitStatus::completed;
}

struct Action {
  std::string_view name;
  Change change;
};
constexpr Action actions[] = {{"remove", remove}, {"pin", pin}, {"archive", archive}};

/// A view of the arguments' own word.
std::string_view actionOf(const CommandArguments& arguments) {
  if (arguments.words.empty()) return "list";
  return arguments.words.front();
}

std::optional<std::string> whatIsWrong(const CommandArguments& arguments) {
  static constexpr std::string_view known[] = {"list", "add", "remove", "pin", "archive"};
  const std::string_view action = actionOf(arguments);
  if (std::ranges::find(known, action) == std::end(known)) {
    return fmt::format(
        "There is no \"projects {}\".{} \"vantrell projects --help\" lists what there is.",
        onOneLine(action), suggestion(action, known));
  }
  const bool takesProject = action != "list";
  if (takesProject != (arguments.words.size() == 2)) {
    return takesProject ? fmt::format("\"projects {0}\" needs more: vantrell projects {0} {1}",
                                      action, action == "add" ? "DIR" : "PROJECT")
                        : std::string("\"projects list\" takes nothing else.");
  }
  if (arguments.has("--off") && action != "pin") return "--off goes with \"projects pin\" only.";
  if (arguments.has("--yes") && action != "remove") {
    return "--yes goes with \"projects remove\" only.";
  }
  return std::nullopt;
}

int projects(const CommandArguments& arguments, const Environment& environment) {
  if (auto wrong = whatIsWrong(arguments)) return refuse({*std::move(wrong)});
  const std::string_view action = actionOf(arguments);
  if (action == "list") return list(arguments, environment);
  if (action == "add") return add(arguments);
  const Change change = std::ranges::find(actions, action, &Action::name)->change;
  return changeTasks([&](ChangeContext& context) -> std::expected<int, UsageError> {
    const auto id = findProject(context.workspaces(), arguments.words[1]);
    if (!id) return std::unexpected(id.error());
    return change(context, arguments, workspaceOf(context.workspaces(), *id));
  });
}

}  // namespace

const Command projectsCommand{
    .name = "projects",
    .parameters = "[add DIR | remove, pin or archive PROJECT]",
    .summary = "list, add and remove project folders",
    .options = options,
    .mostWords = 2,
    .introduction =
        "Alone: lists the projects. PROJECT is the name of one, its folder, or a beginning of\n"
        "its ID.\n"
        "\n"
        "  add DIR            make a folder a project, and select it\n"
        "  remove PROJECT     forget a project and delete its tasks; its folder is not touched\n"
        "  pin PROJECT        list it before the others; with --off no longer\n"
        "  archive PROJECT    archive all its tasks, and begin a new one",
    .closing =
        "remove asks first at a terminal; elsewhere it takes --yes.\n"
        "\n"
        "Exit status: 0 done, 1 failed or refused, 2 wrong usage, 130 not wanted after all.",
    .run = projects,
};

}  // namespace vantrell::shell
