// The commands that show tasks: activity, status, tasks, show, export, say, search. They look at
// what is stored and change nothing.
#include <fmt/format.h>

#include "engine/tasks/run_activity.h"
#include "engine/turns/session_status.h"
#include "platform/files/files.h"
#include "platform/text/text.h"
#include "presentation/conversation_markdown.h"
#include "presentation/spoken_text.h"
#include "records/stores/conversation_json.h"
#include "runtimes/catalog/provider_registry.h"
#include "shell/terminal/answer_stream.h"
#include "shell/terminal/command_context.h"
#include "shell/terminal/command_groups.h"
#include "shell/terminal/task_lookup.h"
#include "shell/terminal/task_words.h"
#include "shell/terminal/terminal_text.h"
#include "shell/terminal/transcript_printer.h"
#include "views/task_search.h"

namespace vantrell::shell {

namespace {

using views::ArchivedTasks;
using views::ListedTask;
using views::listedTasks;
using views::SearchHit;
using views::SearchRequest;
using views::searchTasks;
using views::shortEntryID;
using views::shortEntryIDs;

constexpr CommandOption limitOption{"--limit", "N", "no more than the first N", {}, true};

std::string labelOf(const std::optional<AgentProvider>& provider) {
  return provider ? std::string(shortLabel(*provider)) : "";
}

// ---- activity -----------------------------------------------------------------------------------

void listActivity(CommandContext& context) {
  context.view([&](const StateView& state) -> Outcome {
    const auto all = activities(state.workspaces, state.now);
    const auto shown = std::span(all).first(
        std::min(all.size(), context.arguments.count("--limit").value_or(all.size())));
    if (context.isJson()) {
      for (const auto& each : shown) {
        std::string line = json::write(JsonObject{{"workspaceID", each.workspaceID.text()},
                                                  {"project", each.workspaceName},
                                                  {"threadID", each.threadID.text()},
                                                  {"title", each.threadTitle}});
        line.back() = ',';
        line += "\"run\":";
        JsonWriter writer(line);
        writeJson(writer, each.run, conversationJson);
        context.console.write(line + "}\n");
      }
      return exitStatus::completed;
    }
    TextTable table({{"ID"},
                     {.heading = "PROJECT", .least = 8, .leavesAt = 3},
                     {.heading = "TITLE", .least = 16},
                     {"STATE"},
                     {.heading = "WITH", .leavesAt = 4},
                     {.heading = "LASTED", .leavesAt = 2},
                     {"LAST SIGN"},
                     {.heading = "MESSAGE", .least = 20, .leavesAt = 1}});
    for (const auto& [key, title, project, run] : views::activityRows(shown, state.now)) {
      table.add({{shortID(key.threadID), &TerminalStyle::cyan},
                 {project},
                 {title},
                 stateCell(run.state),
                 {labelOf(run.provider)},
                 {run.lasted},
                 {run.lastSign, &TerminalStyle::dim},
                 {run.message, &TerminalStyle::dim}});
    }
    const auto& style = context.style();
    if (shown.empty()) {
      context.console.write(style.dim("Nothing is at work, and nothing waits for you.\n"));
      return exitStatus::completed;
    }
    context.console.write(table.text(style, context.console.columns()));
    if (!context.console.isOutputTerminal()) return exitStatus::completed;
    const std::size_t left = all.size() - shown.size();
    context.console.say(
        style.dim((left > 0 ? fmt::format("... and {} more\n", left) : "") +
                  "To look at one: vantrell show ID; for its state: vantrell status ID\n"));
    return exitStatus::completed;
  });
}

// ---- status -------------------------------------------------------------------------------------

/// The task whose run changed last, except archived ones; nullopt if none has run.
std::optional<ThreadExecutionKey> lastRunning(const std::vector<Workspace>& workspaces) {
  std::optional<ThreadExecutionKey> last;
  Date changed;
  for (const auto& workspace : workspaces) {
    for (const auto& thread : workspace.threads) {
      const RunRecord* run = thread.latestRun();
      if (!run || thread.isArchived || (last && run->updatedAt <= changed)) continue;
      last = ThreadExecutionKey{workspace.id, thread.id};
      changed = run->updatedAt;
    }
  }
  return last;
}

std::string statusAsJson(const Workspace& workspace, const ChatThread& thread,
                         const SessionStatusReport& report, Date now) {
  JsonObject all = taskMembers(workspace, thread);
  all.set("phase", rawText(report.phase));
  if (const auto provider = providerOf(thread)) all.set("provider", rawText(*provider));
  if (report.startedAt) all.set("startedAt", report.startedAt->secondsSinceReference());
  if (report.lastActivityAt) {
    all.set("lastActivityAt", report.lastActivityAt->secondsSinceReference());
  }
  all.set("queuedPromptCount", static_cast<std::int64_t>(report.queuedPromptCount));
  if (report.detail) all.set("detail", *report.detail);
  all.set("message", report.message(now));
  return json::write(all) + "\n";
}

void tellStatus(CommandContext& context, const Workspace& workspace, const ChatThread& thread,
                const std::string& message) {
  const auto& style = context.style();
  std::string text =
      fmt::format("{}  {} {}\n\n", style.cyan(shortID(thread.id)), style.bold(titleOf(thread)),
                  style.dim(onOneLine(fmt::format("({})", workspace.name))));
  if (!style.isLive()) return context.console.write(text + sanitized(message) + "\n");
  const auto columns = static_cast<std::size_t>(std::max(style.size().columns - 1, 20));
  for (const auto& line : answerLines(message, style, columns)) {
    text += line + "\n";
  }
  context.console.write(text);
  context.console.say(
      style.dim(fmt::format("\nTo look at it: vantrell show {}\n", shortID(thread.id))));
}

void showStatus(CommandContext& context) {
  context.view([&](const StateView& state) -> Outcome {
    auto key = lastRunning(state.workspaces);
    if (!context.arguments.words.empty()) {
      const auto found = findTask(state.workspaces, context.word(0));
      if (!found) return std::unexpected(found.error());
      key = *found;
    }
    if (!key) {
      context.complain("No task has run yet. To begin one: vantrell run \"explain this project\"");
      return exitStatus::failed;
    }
    const Workspace& workspace = workspaceOf(state.workspaces, key->workspaceID);
    const ChatThread& thread = threadOf(state.workspaces, *key);
    const auto report = SessionStatusReport::ofRecord(thread);
    if (context.isJson()) {
      context.console.write(statusAsJson(workspace, thread, report, state.now));
    } else {
      tellStatus(context, workspace, thread, report.message(state.now));
    }
    return exitStatus::completed;
  });
}

// ---- tasks --------------------------------------------------------------------------------------

std::string tableOf(const std::vector<ListedTask>& tasks, Date now, const Console& console) {
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
               {labelOf(row.provider)},
               {ago(row.updatedAt, now), &TerminalStyle::dim}});
  }
  return table.text(console.style(), console.columns());
}

void listTasks(CommandContext& context) {
  const bool onlyArchived = context.arguments.has("--archived");
  const bool isAll = context.arguments.has("--all");
  if (onlyArchived && isAll) {
    return context.misused("--all includes the archived tasks. Leave out --archived.");
  }
  context.view([&](const StateView& state) -> Outcome {
    std::optional<Uuid> project;
    if (const auto named = context.arguments.value("--project")) {
      const auto found = findProject(state.workspaces, *named, context.caller.folder);
      if (!found) return std::unexpected(found.error());
      project = *found;
    }
    auto tasks = listedTasks(state.workspaces,
                             onlyArchived ? ArchivedTasks::only
                             : isAll      ? ArchivedTasks::included
                                          : ArchivedTasks::leftOut,
                             project);
    const std::size_t all = tasks.size();
    tasks.resize(std::min(all, context.arguments.count("--limit").value_or(all)));
    if (context.isJson()) {
      for (const auto& task : tasks) {
        context.console.write(taskAsJson(*task.workspace, *task.thread));
      }
      return exitStatus::completed;
    }
    if (!tasks.empty()) context.console.write(tableOf(tasks, state.now, context.console));
    if (!tasks.empty() && !context.console.isOutputTerminal()) return exitStatus::completed;
    const std::size_t hidden =
        onlyArchived || isAll ? 0
                              : listedTasks(state.workspaces, ArchivedTasks::only, project).size();
    std::string foot;
    if (tasks.empty()) {
      foot = onlyArchived ? "No archived tasks.\n"
             : hidden > 0 ? "All tasks here are archived.\n"
                          : "No tasks yet. To begin one: vantrell run \"explain this project\"\n";
    }
    if (all > tasks.size()) foot += fmt::format("... and {} more\n", all - tasks.size());
    if (hidden > 0) foot += fmt::format("{} archived: vantrell tasks --archived\n", hidden);
    context.console.say(context.style().dim(foot));
    return exitStatus::completed;
  });
}

// ---- show ---------------------------------------------------------------------------------------

std::string headOf(const Workspace& workspace, const ChatThread& thread, Date now,
                   const TerminalStyle& style) {
  std::string head = style.bold(titleOf(thread)) + "\n";
  const auto line = [&](std::string_view label, std::string_view value) {
    if (value.empty()) return;
    head += fmt::format("  {} {}\n", style.dim(fmt::format("{:<9}", label)), value);
  };
  line("Task", thread.id.text());
  line("Project",
       onOneLine(fmt::format("{}  {}", workspace.name,
                             withTilde(thread.isolatedWorkspacePath.value_or(workspace.path)))));
  std::vector<std::string> providers, sessions;
  for (const auto provider : allAgentProviders) {
    const bool hasRun = std::ranges::any_of(
        thread.runs, [provider](const RunRecord& run) { return run.provider == provider; });
    const auto session = thread.sessionID(provider);
    const std::string label(shortLabel(provider));
    if (hasRun || session) {
      const auto model = thread.modelID(provider);
      providers.push_back(label + (model ? fmt::format(" ({})", onOneLine(*model)) : ""));
    }
    if (session) sessions.push_back(fmt::format("{}: {}", label, onOneLine(*session)));
  }
  line("With", text::joined(providers, ", "));
  line("Sessions", text::joined(sessions, ", "));
  line("Changed",
       fmt::format("{}, begun {}", ago(thread.updatedAt, now), ago(thread.createdAt, now)));
  if (const RunRecord* run = thread.latestRun()) {
    const auto state = stateCell(views::taskState(run->status));
    line("Runs", fmt::format("{}, the last one {}", thread.runs.size(),
                             state.look ? (style.*state.look)(state.text) : state.text));
  }
  std::vector<std::string> marks;
  if (thread.isPinned) marks.emplace_back("pinned");
  if (thread.isArchived) marks.emplace_back("archived");
  line("Marks", text::joined(marks, ", "));
  return head;
}

std::string runsOf(const ChatThread& thread, std::size_t most, Date now, const Console& console) {
  TextTable table({{"BEGUN"},
                   {"STATE"},
                   {.heading = "WITH", .leavesAt = 3},
                   {.heading = "TOOK", .leavesAt = 2},
                   {.heading = "PROMPT", .least = 20},
                   {.heading = "OUTCOME", .least = 16, .leavesAt = 1}});
  const auto& runs = thread.runs;
  for (std::size_t i = runs.size() - std::min(runs.size(), most); i < runs.size(); ++i) {
    const auto run = views::runRow(runs[i], now);
    table.add({{run.begun},
               stateCell(run.state),
               {labelOf(run.provider)},
               {runs[i].completedAt ? run.lasted : ""},
               {run.prompt},
               {run.message, &TerminalStyle::dim}});
  }
  return runs.empty() ? "This task has no runs yet.\n"
                      : table.text(console.style(), console.columns());
}

std::string entriesOf(const ChatThread& thread, std::size_t most, const Console& console) {
  if (thread.entries.empty()) return "Nothing was said yet.\n";
  TextTable table({{"ENTRY"}, {"KIND"}, {.heading = "TEXT", .least = 20}});
  const auto ids = shortEntryIDs(thread);
  for (std::size_t i = ids.size() - std::min(ids.size(), most); i < ids.size(); ++i) {
    const ChatEntry& entry = thread.entries[i];
    const bool isTool = entry.kind == ChatEntryKind::tool;
    table.add({{ids[i], &TerminalStyle::cyan},
               {std::string(rawText(entry.kind)), &TerminalStyle::dim},
               {isTool ? entry.title.value_or("") : entry.text}});
  }
  return table.text(console.style(), console.columns());
}

/// After the transcript: what waits, and how to go on.
void tellWhatWaits(Console& console, const ChatThread& thread) {
  const auto& style = console.style();
  std::string foot;
  for (const auto& queued : thread.queuedPrompts) {
    foot += fmt::format("{} {}\n", style.yellow("waits:"), onOneLine(queued.text));
  }
  if (thread.draftText && !thread.draftText->empty()) {
    foot += fmt::format("{} {}\n", style.yellow("draft:"), onOneLine(*thread.draftText));
  }
  if (!foot.empty() || console.isOutputTerminal()) console.write("\n" + foot);
  if (!console.isOutputTerminal()) return;
  console.say(
      style.dim(fmt::format("To go on: vantrell run --task {} \"...\"\n", shortID(thread.id))));
}

/// Where the transcript begins to be shown.
std::expected<std::size_t, UsageError> firstEntry(const ChatThread& thread, std::size_t most,
                                                  const std::optional<std::string>& entry) {
  const std::size_t count = thread.entries.size();
  if (!entry) return count - std::min(count, most);
  for (std::size_t i = 0; i < count; ++i) {
    if (thread.entries[i].id.starts_with(*entry)) return i;
  }
  return usageError(fmt::format("The task has no entry {}. \"vantrell search\" names entries.",
                                onOneLine(*entry)));
}

std::string recordOf(const ChatThread& thread, std::size_t first) {
  std::string json;
  JsonWriter writer(json);
  ChatThread part = thread;
  if (first > 0) {
    part.entries = Transcript(std::vector<ChatEntry>(
        thread.entries.begin() + static_cast<std::ptrdiff_t>(first), thread.entries.end()));
  }
  writeJson(writer, part, conversationJson);
  return json + "\n";
}

void printTranscript(Console& console, const ChatThread& thread, std::size_t first) {
  const auto& style = console.style();
  TranscriptPrinter printer([&](std::string_view bytes) { console.write(bytes); }, style);
  printer.isReview = true;
  if (thread.entries.empty()) console.write("\n" + style.dim("Nothing was said yet.") + "\n");
  if (first > 0) {
    console.write(fmt::format("\n{}\n", style.dim(fmt::format("... {} earlier {}", first,
                                                              first == 1 ? "entry" : "entries"))));
  }
  if (first < thread.entries.size()) console.write("\n");
  for (std::size_t i = first; i < thread.entries.size() && !console.isClosed(); ++i) {
    printer.entryAdded(thread.entries[i]);
  }
  printer.ended(nullptr);
}

void show(CommandContext& context) {
  const auto& given = context.arguments;
  const bool wantsRuns = given.has("--runs"), wantsEntries = given.has("--entries");
  if (wantsRuns && context.isJson()) {
    return context.misused("--json includes the runs. Leave out --runs.");
  }
  if (wantsEntries && (wantsRuns || context.isJson())) {
    return context.misused("--entries is a list of its own. Leave out --runs and --json.");
  }
  if (given.has("--entry") && (given.has("--last") || wantsRuns || wantsEntries)) {
    return context.misused("--entry says where to begin. Leave out --last, --runs and --entries.");
  }
  context.viewTask(
      [&](const StateView& state, const Workspace& workspace, const ChatThread& thread) -> Outcome {
        const std::size_t most = given.count("--last").value_or(std::string::npos);
        Console& console = context.console;
        if (wantsEntries) {
          console.write(entriesOf(thread, most, console));
          return exitStatus::completed;
        }
        const auto first = firstEntry(thread, most, given.value("--entry"));
        if (!first) return std::unexpected(first.error());
        if (context.isJson()) {
          console.write(recordOf(thread, *first));
          return exitStatus::completed;
        }
        console.write(headOf(workspace, thread, state.now, context.style()));
        if (wantsRuns) {
          console.write("\n" + runsOf(thread, most, state.now, console));
        } else {
          printTranscript(console, thread, *first);
          tellWhatWaits(console, thread);
        }
        return exitStatus::completed;
      });
}

// ---- export, say --------------------------------------------------------------------------------

constexpr mode_t ownerOnly = 0600;  // conversations may hold anything

void exportTask(CommandContext& context) {
  context.viewTask(
      [&](const StateView&, const Workspace& workspace, const ChatThread& thread) -> Outcome {
        const std::string document =
            ConversationMarkdown::render(thread.title, workspace.name, thread.entries);
        if (context.arguments.words.size() == 1 || context.word(1) == "-") {
          context.console.write(document);
          return exitStatus::completed;
        }
        const std::string path = context.absolute(context.word(1));
        if (!context.arguments.has("--replace") && files::exists(path)) {
          return usageError(
              fmt::format("\"{}\" exists already. --replace writes over it.", context.word(1)));
        }
        const auto written = files::writeAtomically(path, document, ownerOnly);
        if (written) return exitStatus::completed;
        context.complain(written.error().description);
        return exitStatus::failed;
      });
}

/// The last answer that has something to say, or nothing.
std::string lastAnswer(const ChatThread& thread) {
  for (std::size_t i = thread.entries.size(); i-- > 0;) {
    const ChatEntry& entry = thread.entries[i];
    if (entry.kind != ChatEntryKind::assistant) continue;
    if (std::string spoken = SpokenText::render(entry.text); !spoken.empty()) return spoken;
  }
  return {};
}

void say(CommandContext& context) {
  context.viewTask([&](const StateView&, const Workspace&, const ChatThread& thread) -> Outcome {
    const std::string spoken = lastAnswer(thread);
    if (spoken.empty()) {
      context.complain("There is no answer in this task yet.");
      return exitStatus::failed;
    }
    // A synthesizer must not get control characters either.
    context.console.write(onOneLine(spoken) + "\n");
    return exitStatus::completed;
  });
}

// ---- search -------------------------------------------------------------------------------------

constexpr std::size_t shownUnlessAsked = 50;  // hits
constexpr auto searchScopes = std::to_array<std::string_view>({"titles", "entries", "all"});

/// Prints hits one by one, with the task before the first of its own.
class HitPrinter {
 public:
  explicit HitPrinter(Console& console)
      : console_(console), style_(console.style()), columns_(console.columns()) {}

  void print(const SearchHit& hit) {
    if (last_ != hit.thread.id) {
      if (last_) console_.write("\n");
      last_ = hit.thread.id;
      heading(hit);
    }
    const std::string kind(hit.entry ? rawText(hit.entry->kind) : "title");
    const std::string id = hit.entry ? onOneLine(shortEntryID(hit.thread, *hit.entry)) : "";
    const std::string head = fmt::format("  {:<9}  {:<8}  ", kind, id);
    console_.write(style_.dim(head) +
                   excerpt(hit, columns_ - std::min(columns_, text::columnCount(head))) + "\n");
  }

 private:
  void heading(const SearchHit& hit) {
    const std::string id = shortID(hit.thread.id);
    const std::string mark = hit.thread.isArchived ? ", archived" : "";
    // The title gets what it needs, up to what leaves some room for the project.
    const std::size_t room = columns_ - std::min(columns_, id.size() + 6 + mark.size());
    const std::string title =
        cutTo(titleOf(hit.thread), room - std::min(room / 3, std::size_t{12}));
    const std::string project =
        cutTo(onOneLine(hit.workspace.name), room - text::columnCount(title));
    console_.write(fmt::format("{}  {}  {}\n", style_.cyan(id), style_.bold(title),
                               style_.dim(fmt::format("({}{})", project, mark))));
  }
  /// A third of the room before the hit, what is left after it.
  std::string excerpt(const SearchHit& hit, std::size_t room) const {
    const std::size_t marks = style_.isLive() ? 0 : 2;
    const std::string found = cutTo(hit.hit, std::max<std::size_t>(room, 12) - marks);
    std::size_t left = room - std::min(room, text::columnCount(found) + marks);
    const std::size_t after = text::columnCount(hit.after);
    const std::string before =
        cutTo(hit.before, std::max(left / 3, left - std::min(left, after)), true);
    left -= std::min(left, text::columnCount(before));
    const std::string marked = style_.isLive() ? style_.bold(style_.red(found)) : "[" + found + "]";
    return before + marked + cutTo(hit.after, left);
  }

  Console& console_;
  const TerminalStyle& style_;
  const std::size_t columns_;
  std::optional<Uuid> last_;
};

std::string asJson(const SearchHit& hit) {
  const auto createdAt = hit.entry ? hit.entry->createdAt : hit.thread.createdAt;
  JsonObject all{{"workspaceID", hit.workspace.id.text()}, {"threadID", hit.thread.id.text()}};
  if (hit.entry) all.set("entryID", hit.entry->id);
  all.set("kind", hit.entry ? rawText(hit.entry->kind) : "title");
  all.set("project", hit.workspace.name);
  all.set("title", hit.thread.title);
  all.set("isArchived", hit.thread.isArchived);
  all.set("createdAt", createdAt.secondsSinceReference());
  all.set("before", hit.before);
  all.set("hit", hit.hit);
  all.set("after", hit.after);
  return json::write(all) + "\n";
}

void search(CommandContext& context) {
  const auto& given = context.arguments;
  SearchRequest request;
  request.text = text::repaired(context.word(0));
  if (text::trimmed(request.text).empty()) {
    return context.misused("The text to search for is empty.");
  }
  if (given.has("--case")) request.letterCase = text::Finder::Case::matters;
  if (const auto scope = given.value("--in")) {
    request.scope = static_cast<SearchRequest::Scope>(std::ranges::find(searchScopes, *scope) -
                                                      searchScopes.begin());
  }
  context.view([&](const StateView& state) -> Outcome {
    if (const auto named = given.value("--project")) {
      const auto found = findProject(state.workspaces, *named, context.caller.folder);
      if (!found) return std::unexpected(found.error());
      request.project = *found;
    }
    Console& console = context.console;
    const std::size_t most = given.count("--limit").value_or(
        context.isJson() ? std::string_view::npos : shownUnlessAsked);
    HitPrinter printer(console);
    std::size_t count = 0;
    searchTasks(state.workspaces, request, [&](const SearchHit& hit) {
      ++count;
      if (context.isJson()) {
        console.write(asJson(hit));
        return count < most && !console.isClosed();
      }
      if (count <= most) printer.print(hit);
      return !console.isClosed();
    });
    if (!context.isJson()) {
      console.write(
          count == 0 ? "Nothing was found.\n"
          : count > most
              ? fmt::format("\n{} found, the first {} shown: --limit N shows more\n", count, most)
              : fmt::format("\n{} found\n", count));
    }
    return count > 0 ? exitStatus::completed : exitStatus::failed;
  });
}

// ---- their help ---------------------------------------------------------------------------------

constexpr CommandOption activityOptions[] = {limitOption, jsonOption};
constexpr CommandOption statusOptions[] = {{"--json", "", "for scripts: one JSON object"}};
constexpr CommandOption taskOptions[] = {
    {"--project", "PROJECT", "only those of this project: its name, folder or ID"},
    {"--archived", "", "the archived ones"},
    {"--all", "", "the archived ones as well"},
    limitOption,
    jsonOption,
};
constexpr CommandOption showOptions[] = {
    {"--last", "N", "only the last N entries (or runs)", {}, true},
    {"--entry", "ENTRY", "only from this entry on, as search names it"},
    {"--runs", "", "the runs, in place of what was said"},
    {"--entries", "", "what was said, one line an entry, with the entries' IDs"},
    {"--json", "", "for scripts: the record as it is stored, one JSON object"},
};
constexpr CommandOption exportOptions[] = {{"--replace", "", "write over an existing file"}};
constexpr CommandOption searchOptions[] = {
    {"--project", "PROJECT", "only in this project: its name, folder or ID"},
    {"--in", "WHERE", "titles, entries or all (default)", searchScopes},
    {"--case", "", "upper and lower case are different"},
    {"--limit", "N", "show no more than N (default: 50; with --json all)", {}, true},
    jsonOption,
};

constexpr Command commands[] = {
    {.name = "activity",
     .summary = "what is at work, waits for you, or has just ended",
     .options = activityOptions,
     .begin = listActivity,
     .introduction =
         "Lists, over all projects, the tasks whose latest run is at work, waits for an answer,\n"
         "failed or was interrupted, and those that completed in the last five minutes; the one\n"
         "that changed last comes first. One that failed stays until its next run.",
     .closing = "Examples:\n"
                "  watch vantrell activity\n"
                "  vantrell activity --json | jq -r 'select(.run.status == \"failed\").threadID'"},
    {.name = "status",
     .parameters = "[ID]",
     .summary = "the state of a task, without asking its agent",
     .options = statusOptions,
     .maxWords = 1,
     .begin = showStatus,
     .introduction =
         "Says whether a task is at work, for how long, when its agent was last heard, what it\n"
         "waits for and how many prompts wait. Without an ID: the task that ran last. It reads\n"
         "what is stored, also while Vantrell works on it: no agent is asked, nothing is added to\n"
         "the conversation. ID is any beginning of a task's ID that no other task has.",
     .closing = "A run whose Vantrell has ended suddenly counts as interrupted.\n"
                "\n"
                "Exit status: 0 done, 1 failed, or no task has run yet, 2 wrong usage.\n"
                "\n"
                "Examples:\n"
                "  vantrell status\n"
                "  vantrell status 3F2A --json | jq -r .phase"},
    {.name = "tasks",
     .summary = "list the tasks, newest first",
     .options = taskOptions,
     .begin = listTasks,
     .introduction = "Lists the tasks of all projects, pinned ones first, then the newest first. "
                     "Any beginning\n"
                     "of an ID that no other task has names the task in other commands.",
     .closing = "* is pinned, - is archived.\n"
                "\n"
                "Examples:\n"
                "  vantrell tasks --project .\n"
                "  vantrell tasks --json | jq -r 'select(.status == \"failed\").threadID'"},
    {.name = "show",
     .parameters = "ID",
     .summary = "show a task: what was said and done",
     .options = showOptions,
     .minWords = 1,
     .maxWords = 1,
     .begin = show,
     .introduction =
         "Shows a task as run showed it. ID is any beginning of the task's ID that no other task\n"
         "has.",
     .closing =
         "Examples:\n"
         "  vantrell show 3F2A91C0 | less\n"
         "  vantrell show 3F2A --last 5\n"
         "  vantrell show 3F2A --json | jq -r '.entries[] | select(.kind == \"assistant\").text'"},
    {.name = "export",
     .parameters = "ID [FILE]",
     .summary = "a task's conversation as a Markdown document",
     .options = exportOptions,
     .minWords = 1,
     .maxWords = 2,
     .begin = exportTask,
     .introduction =
         "Writes what was said in a task as Markdown, to standard output or to FILE. Thoughts\n"
         "and tool calls are left out. ID is any beginning of the task's ID that no other task\n"
         "has.",
     .closing = "Exit status: 0 done, 1 the document could not be written, 2 wrong usage.\n"
                "\n"
                "Examples:\n"
                "  vantrell export 3F2A91C0 talk.md\n"
                "  vantrell export 3F2A | less"},
    {.name = "say",
     .parameters = "ID",
     .summary = "the last answer of a task as text for speech",
     .minWords = 1,
     .maxWords = 1,
     .begin = say,
     .introduction =
         "Prints the last answer of a task on one line, without markup and code, as a speech\n"
         "synthesizer wants it. ID is any beginning of the task's ID that no other task has.",
     .closing = "Exit status: 0 done, 1 there is no answer yet, 2 wrong usage.\n"
                "\n"
                "Example:\n"
                "  vantrell say 3F2A | espeak-ng"},
    {.name = "search",
     .parameters = "TEXT",
     .summary = "find a text in all tasks",
     .options = searchOptions,
     .minWords = 1,
     .maxWords = 1,
     .begin = search,
     .introduction =
         "Looks for a text in the titles and transcripts of all tasks, archived ones included;\n"
         "the case of letters does not count. Shows the first place in each entry, with the\n"
         "entry's ID: \"vantrell show ID --entry ENTRY\" begins there.",
     .closing = "Exit status: 0 found, 1 nothing found (or failed), 2 wrong usage.\n"
                "\n"
                "Examples:\n"
                "  vantrell search \"race condition\"\n"
                "  vantrell search --in titles --project . release"},
};

}  // namespace

std::span<const Command> taskViewCommands() {
  return commands;
}

}  // namespace vantrell::shell
