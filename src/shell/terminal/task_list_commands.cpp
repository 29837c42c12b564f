// The commands that look over all tasks: tasks, search, activity, status. They read what is stored
// and change nothing.
#include <fmt/format.h>

#include "engine/tasks/run_activity.h"
#include "engine/turns/session_status.h"
#include "platform/text/text.h"
#include "records/stores/conversation_json.h"
#include "shell/terminal/automation_words.h"
#include "shell/terminal/command_context.h"
#include "shell/terminal/command_groups.h"
#include "shell/terminal/task_lookup.h"
#include "shell/terminal/task_words.h"
#include "shell/terminal/terminal_text.h"
#include "views/task_search.h"

namespace vantrell::shell {

namespace {

using views::ArchivedTasks;

std::string labelOf(const std::optional<AgentProvider>& provider) {
  return provider ? std::string(shortLabel(*provider)) : "";
}

/// Takes off what is beyond --limit.
void limit(const CommandContext& context, auto& rows) {
  const std::size_t all = rows.size();
  rows.resize(std::min(all, context.arguments.count(limitOption.name).value_or(all)));
}

// ---- tasks --------------------------------------------------------------------------------------

Outcome listTasks(CommandContext& context, const StateView& state) {
  const bool onlyArchived = context.arguments.has("--archived");
  const bool isAll = context.arguments.has("--all");
  if (onlyArchived && isAll) {
    return usageError("--all includes the archived tasks. Leave out --archived.");
  }
  const auto project = context.givenProject(state.workspaces);
  if (!project) return std::unexpected(project.error());
  auto tasks = views::listedTasks(state.workspaces,
                                  onlyArchived ? ArchivedTasks::only
                                  : isAll      ? ArchivedTasks::included
                                               : ArchivedTasks::leftOut,
                                  *project);
  limit(context, tasks);
  const auto asJson = [](const auto& task) { return taskAsJson(*task.workspace, *task.thread); };
  const auto asCells = [&](const auto& task) -> std::vector<TableCell> {
    const auto row = views::taskRow(*task.workspace, *task.thread);
    const auto mark = row.isPinned ? "*" : row.isArchived ? "-" : "";
    return {{mark, look::yellow},
            idCell(row.key.threadID),
            {row.project},
            {row.title, row.isArchived ? look::dim : nullptr},
            stateCell(row.state),
            {labelOf(row.provider)},
            {ago(row.updatedAt, state.now), look::dim}};
  };
  return context.showList(
      tasks,
      TextTable({{""}, {"ID"}, {"PROJECT", 8}, {"TITLE", 16}, {"STATE"}, {"WITH"}, {"CHANGED"}}),
      asJson, asCells, "No tasks. To begin one: vantrell run \"explain this project\"\n");
}

// ---- search -------------------------------------------------------------------------------------

using Scope = views::SearchRequest::Scope;
constexpr std::size_t shownUnlessAsked = 50;  // hits
constexpr std::size_t columnsBeforeHit = 24;

JsonObject asJson(const views::SearchHit& hit) {
  const auto createdAt = hit.entry ? hit.entry->createdAt : hit.thread.createdAt;
  return withoutNulls({{"workspaceID", hit.workspace.id.text()},
                       {"threadID", hit.thread.id.text()},
                       {"entryID", hit.entry ? Json(hit.entry->id) : Json()},
                       {"kind", hit.entry ? rawText(hit.entry->kind) : "title"},
                       {"project", hit.workspace.name},
                       {"title", hit.thread.title},
                       {"isArchived", hit.thread.isArchived},
                       {"createdAt", createdAt.secondsSinceReference()},
                       {"before", hit.before},
                       {"hit", hit.hit},
                       {"after", hit.after}});
}

std::vector<TableCell> asCells(const views::SearchHit& hit) {
  return {idCell(hit.thread.id),
          {hit.entry ? views::shortEntryID(hit.thread, *hit.entry) : "", look::cyan},
          {std::string(hit.entry ? rawText(hit.entry->kind) : "title"), look::dim},
          {titleOf(hit.thread)},
          {fmt::format("{}[{}]{}", cutTo(hit.before, columnsBeforeHit, true), hit.hit, hit.after)}};
}

Outcome search(CommandContext& context, const StateView& state) {
  const auto& given = context.arguments;
  views::SearchRequest request{.text = text::repaired(context.word(0))};
  if (text::trimmed(request.text).empty()) return usageError("The text to search for is empty.");
  if (given.has("--case")) request.letterCase = text::Finder::Case::matters;
  request.scope = given.choice<Scope>("--in").value_or(Scope::all);
  const auto project = context.givenProject(state.workspaces);
  if (!project) return std::unexpected(project.error());
  request.project = *project;
  Console& console = context.console;
  const bool isJson = context.isJson();
  const std::size_t most =
      given.count("--limit").value_or(isJson ? std::string::npos : shownUnlessAsked);
  TextTable table({{"TASK"}, {"ENTRY"}, {"KIND"}, {"TITLE", 10}, {"FOUND", 40}});
  std::size_t count = 0;
  views::searchTasks(state.workspaces, request, [&](const views::SearchHit& hit) {
    if (++count <= most) isJson ? context.writeJson(asJson(hit)) : table.add(asCells(hit));
    return (!isJson || count < most) && !console.isClosed();
  });
  const auto outcome = context.showTable(table, count == 0, "Nothing was found.\n");
  if (!isJson && count > most) {
    console.write(fmt::format("{} found, the first {} shown\n", count, most));
  }
  return count > 0 ? outcome : exitStatus::failed;
}

// ---- activity, status ---------------------------------------------------------------------------

JsonObject asJson(const RunActivity& activity) {
  return {{"workspaceID", activity.workspaceID.text()},
          {"project", activity.workspaceName},
          {"threadID", activity.threadID.text()},
          {"title", activity.threadTitle},
          {"run", json::parse(encodeRow(activity.run)).value_or(Json())}};
}

Outcome listActivity(CommandContext& context, const StateView& state) {
  auto all = activities(state.workspaces, state.now);
  limit(context, all);
  const auto cells = [&](const RunActivity& activity) -> std::vector<TableCell> {
    const auto run = views::runRow(activity.run, state.now);
    return {idCell(activity.threadID),
            {activity.workspaceName},
            {views::shownTitle(activity.threadTitle)},
            stateCell(run.state),
            {run.lastSign, look::dim},
            {labelOf(run.provider)},
            {run.lasted},
            {run.message, look::dim}};
  };
  TextTable table({{"ID"},
                   {"PROJECT", 8},
                   {"TITLE", 8},
                   {"STATE"},
                   {"LAST SIGN"},
                   {"WITH"},
                   {"LASTED"},
                   {"MESSAGE", 8}});
  const auto json = [](const RunActivity& activity) { return asJson(activity); };
  return context.showList(all, std::move(table), json, cells,
                          "Nothing is at work, and nothing waits for you.\n");
}

Json dateOrNull(const std::optional<Date>& date) {
  return date ? Json(date->secondsSinceReference()) : Json();
}

Outcome tellStatus(CommandContext& context, const TaskView& task) {
  const auto& [workspace, thread, now] = task;
  const auto report = SessionStatusReport::ofRecord(thread);
  const std::string message = report.message(now);
  const auto provider = providerOf(thread);
  JsonObject all = taskMembers(workspace, thread);
  all.set("phase", rawText(report.phase));
  all.set("provider", provider ? Json(rawText(*provider)) : Json());
  all.set("startedAt", dateOrNull(report.startedAt));
  all.set("lastActivityAt", dateOrNull(report.lastActivityAt));
  all.set("queuedPromptCount", static_cast<std::int64_t>(report.queuedPromptCount));
  all.set("detail", orNull(report.detail));
  all.set("message", message);
  const auto& style = context.style();
  std::string text =
      fmt::format("{}  {} {}\n\n", style.cyan(shortID(thread.id)), style.bold(titleOf(thread)),
                  style.dim(onOneLine(fmt::format("({})", workspace.name))));
  const std::string words = sanitized(message);
  for (const auto line : text::split(words, '\n')) {
    text += (style.isLive() ? styled(withoutMarks(line)) : std::string(line)) + "\n";
  }
  return context.report(withoutNulls(all), text);
}

void showStatus(CommandContext& context) {
  if (!context.arguments.words.empty()) {
    return viewing<tellStatus>(context);
  }
  context.view([&](const StateView& state) -> Outcome {
    tellDueRecipes(context, knownRecipes(context));
    auto tasks = views::listedTasks(state.workspaces, ArchivedTasks::leftOut, {});
    std::erase_if(tasks, [](const auto& task) { return !task.thread->latestRun(); });
    const auto changed = [](const auto& task) { return task.thread->latestRun()->updatedAt; };
    const auto last = std::ranges::max_element(tasks, {}, changed);
    if (last != tasks.end())
      return tellStatus(context, {*last->workspace, *last->thread, state.now});
    context.complain("No task has run yet. To begin one: vantrell run \"explain this project\"");
    return exitStatus::failed;
  });
}

// ---- their help ---------------------------------------------------------------------------------

constexpr CommandOption activityOptions[] = {limitOption, jsonOption};
constexpr CommandOption taskOptions[] = {
    ofProjectOption,
    {"--archived", "", "the archived ones"},
    {"--all", "", "the archived ones as well"},
    limitOption,
    jsonOption,
};
constexpr CommandOption searchOptions[] = {
    ofProjectOption,
    {"--in", "WHERE", "titles, entries or all (default)", choicesOf<Scope>},
    {"--case", "", "upper and lower case are different"},
    {"--limit", "N", "show no more than N (default: 50; with --json all)", {}, true},
    jsonOption,
};

constexpr Command commands[] = {
    {"activity", "", "what is at work, waits for you, or has just ended", activityOptions,
     viewing<listActivity>,
     "Lists, over all projects, the tasks whose latest run is at work, waits for an answer,\n"
     "failed or was interrupted, and those that completed in the last five minutes.",
     "Examples:\n"
     "  watch vantrell activity\n"
     "  vantrell activity --json | jq -r 'select(.run.status == \"failed\").threadID'"},
    {"status", "[ID]", "the state of a task, without asking its agent", onlyJson, showStatus,
     "Says whether a task is at work, for how long, when its agent was last heard, what it\n"
     "waits for and how many prompts wait. Without an ID: the task that ran last, and whether\n"
     "an automation is due that nothing runs."},
    {"tasks", "", "list the tasks, newest first", taskOptions, viewing<listTasks>, "",
     "Pinned tasks (*) come first; - is archived.\n"
     "\n"
     "Examples:\n"
     "  vantrell tasks --project .\n"
     "  vantrell tasks --json | jq -r 'select(.status == \"failed\").threadID'"},
    {"search", "TEXT", "find a text in all tasks", searchOptions, viewing<search>,
     "Looks for a text in the titles and transcripts of all tasks, archived ones included.\n"
     "Shows the first place in each entry: \"vantrell show ID --entry ENTRY\" begins there.",
     "Exit status: 0 found, 1 nothing found (or failed), 2 wrong usage."},
};

}  // namespace

std::span<const Command> taskListCommands() {
  return commands;
}

}  // namespace vantrell::shell
