#include <fmt/format.h>
#include <unistd.h>

#include "runtimes/catalog/provider_registry.h"
#include "shell/terminal/commands.h"
#include "shell/terminal/plain_words.h"
#include "shell/terminal/standard_output.h"
#include "shell/terminal/state_view.h"
#include "shell/terminal/task_lookup.h"
#include "shell/terminal/task_words.h"

namespace vantrell::shell {

using views::ArchivedTasks;
using views::ListedTask;
using views::listedTasks;

namespace {

constexpr CommandOption options[] = {
    {"--project", "PROJECT", "only those of this project: its name, folder or ID"},
    {"--archived", "", "the archived ones"},
    {"--all", "", "the archived ones as well"},
    {"--limit", "N", "no more than the first N"},
    {"--json", "", "for scripts: one JSON object a line"},
};

std::string tableOf(const std::vector<ListedTask>& tasks, Date now, const TerminalStyle& style) {
  TextTable table({{""},
                   {"ID"},
                   {.heading = "PROJECT", .least = 8, .leavesAt = 2},
                   {.heading = "TITLE", .least = 20},
                   {"STATE"},
                   {.heading = "WITH", .leavesAt = 3},
                   {.heading = "CHANGED", .leavesAt = 1}});
  for (const auto& [workspace, thread] : tasks) {
    const auto row = views::taskRow(*workspace, *thread);
    table.add({{row.isPinned     ? "*"
                : row.isArchived ? "-"
                                 : "",
                &TerminalStyle::yellow},
               {shortID(row.key.threadID), &TerminalStyle::cyan},
               {row.project},
               {row.title, row.isArchived ? &TerminalStyle::dim : nullptr},
               stateCell(row.state),
               {row.provider ? std::string(shortLabel(*row.provider)) : ""},
               {ago(row.updatedAt, now), &TerminalStyle::dim}});
  }
  return table.text(style, columnsForTables(STDOUT_FILENO));
}

/// What to do next, for people only.
std::string footer(std::size_t left, std::size_t archived, bool anyShown) {
  std::string text;
  if (!anyShown && archived == 0) {
    text = "No tasks yet. To begin one: vantrell run \"explain this project\"\n";
  } else if (!anyShown) {
    text = "No tasks here that are not archived.\n";
  }
  if (left > 0) text += fmt::format("... and {} more\n", left);
  if (archived > 0) text += fmt::format("{} archived: vantrell tasks --archived\n", archived);
  return asTyped(text);
}

int listTasks(const CommandArguments& arguments, const Environment& environment) {
  if (arguments.has("--archived") && arguments.has("--all")) {
    return refuse({"--all includes the archived tasks. Leave out --archived."});
  }
  const auto limit = countOption(arguments, "--limit");
  if (!limit) return refuse(limit.error());
  return withStateView([&](const StateView& state) -> std::expected<int, UsageError> {
    std::optional<Uuid> project;
    if (const auto named = arguments.value("--project")) {
      const auto found = findProject(state.workspaces, *named);
      if (!found) return std::unexpected(found.error());
      project = *found;
    }
    const auto archived = arguments.has("--archived") ? ArchivedTasks::only
                          : arguments.has("--all")    ? ArchivedTasks::included
                                                      : ArchivedTasks::leftOut;
    auto tasks = listedTasks(state.workspaces, archived, project);
    const std::size_t shown = std::min(tasks.size(), limit->value_or(tasks.size()));
    const std::size_t left = tasks.size() - shown;
    tasks.resize(shown);
    StandardOutput out;
    if (arguments.has("--json")) {
      for (const auto& task : tasks) {
        out.write(taskAsJson(*task.workspace, *task.thread));
      }
      return out.finish(exitStatus::completed);
    }
    const auto style = TerminalStyle::of(STDOUT_FILENO, environment);
    if (!tasks.empty()) out.write(tableOf(tasks, state.now, style));
    const std::size_t hidden =
        archived == ArchivedTasks::leftOut
            ? listedTasks(state.workspaces, ArchivedTasks::only, project).size()
            : 0;
    if (archived == ArchivedTasks::only && tasks.empty()) {
      out.write("No archived tasks.\n");
    } else if (terminal::isTerminal(STDOUT_FILENO) || tasks.empty()) {
      out.write(style.dim(footer(left, hidden, !tasks.empty())));
    }
    return out.finish(exitStatus::completed);
  });
}

}  // namespace

const Command tasksCommand{
    .name = "tasks",
    .summary = "list the tasks, newest first",
    .options = options,
    .introduction =
        "Lists the tasks of all projects, pinned ones first, then the newest first. Any beginning\n"
        "of an ID that no other task has names the task in other commands.",
    .closing =
        "* is pinned, - is archived.\n"
        "\n"
        "Exit status: 0 done, 1 failed, 2 wrong usage.\n"
        "\n"
        "Examples:\n"
        "  vantrell tasks --project .\n"
        "  vantrell tasks --json | jq -r 'select(.status == \"failed\").threadID'",
    .run = listTasks,
};

}  // namespace vantrell::shell
