#include <fmt/format.h>
#include <unistd.h>

#include "engine/tasks/run_activity.h"
#include "platform/terminal/terminal.h"
#include "platform/values/json.h"
#include "records/stores/conversation_json.h"
#include "shell/terminal/commands.h"
#include "shell/terminal/json_member.h"
#include "shell/terminal/plain_words.h"
#include "shell/terminal/standard_output.h"
#include "shell/terminal/state_view.h"
#include "shell/terminal/task_words.h"

namespace vantrell::shell {

namespace {

std::string asJson(const RunActivity& activity) {
  std::string line;
  JsonWriter writer(line);
  writer.beginObject();
  member(writer, "workspaceID", activity.workspaceID.text());
  member(writer, "project", activity.workspaceName);
  member(writer, "threadID", activity.threadID.text());
  member(writer, "title", activity.threadTitle);
  writer.key("run");
  writeJson(writer, activity.run, conversationJson);
  writer.endObject();
  return line + "\n";
}

std::string tableOf(std::span<const RunActivity> rows, Date now, const TerminalStyle& style) {
  TextTable table({{"ID"},
                   {.heading = "PROJECT", .least = 8, .leavesAt = 3},
                   {.heading = "TITLE", .least = 16},
                   {"STATE"},
                   {.heading = "WITH", .leavesAt = 4},
                   {.heading = "LASTED", .leavesAt = 2},
                   {"LAST SIGN"},
                   {.heading = "MESSAGE", .least = 20, .leavesAt = 1}});
  for (const auto& [key, title, project, run] : views::activityRows(rows, now)) {
    table.add({{shortID(key.threadID), &TerminalStyle::cyan},
               {project},
               {title},
               stateCell(run.state),
               {run.provider ? std::string(shortLabel(*run.provider)) : ""},
               {run.lasted},
               {run.lastSign, &TerminalStyle::dim},
               {run.message, &TerminalStyle::dim}});
  }
  return table.text(style, columnsForTables(STDOUT_FILENO));
}

/// What to do next, for people only.
std::string footer(std::size_t shown, std::size_t left) {
  if (shown == 0) return "Nothing is at work, and nothing waits for you.\n";
  std::string text;
  if (left > 0) text += fmt::format("... and {} more\n", left);
  return text + asTyped("To look at one: vantrell show ID; how it stands: vantrell status ID\n");
}

int listActivity(const CommandArguments& arguments, const Environment& environment) {
  const auto limit = countOption(arguments, "--limit");
  if (!limit) return refuse(limit.error());
  return withStateView([&](const StateView& state) -> std::expected<int, UsageError> {
    const auto all = activities(state.workspaces, state.now);
    const auto rows = std::span(all).first(std::min(all.size(), limit->value_or(all.size())));
    StandardOutput out;
    if (arguments.has("--json")) {
      for (const auto& each : rows) out.write(asJson(each));
      return out.finish(exitStatus::completed);
    }
    const auto style = TerminalStyle::of(STDOUT_FILENO, environment);
    if (!rows.empty()) out.write(tableOf(rows, state.now, style));
    if (terminal::isTerminal(STDOUT_FILENO) || rows.empty()) {
      out.write(style.dim(footer(rows.size(), all.size() - rows.size())));
    }
    return out.finish(exitStatus::completed);
  });
}

constexpr CommandOption options[] = {
    {"--limit", "N", "no more than the first N"},
    {"--json", "", "for scripts: one JSON object a line"},
};

}  // namespace

const Command activityCommand{
    .name = "activity",
    .summary = "what is at work, waits for you, or has just ended",
    .options = options,
    .introduction =
        "Lists, over all projects, the tasks whose latest run is at work, waits for an answer,\n"
        "failed or was interrupted, and those that completed in the last five minutes; the one\n"
        "that changed last comes first. One that failed stays until its next run.",
    .closing =
        "Exit status: 0 done, 1 failed, 2 wrong usage.\n"
        "\n"
        "Examples:\n"
        "  watch vantrell activity\n"
        "  vantrell activity --json | jq -r 'select(.run.status == \"failed\").threadID'",
    .run = listActivity,
};

}  // namespace vantrell::shell
