// The commands about one task: show, export, say, which read what is stored and change nothing;
// new, fork, rename, move, pin, archive, delete.
#include <fmt/format.h>

#include "app/conversation_transfer.h"
#include "engine/core/selection.h"
#include "engine/core/workspace_tree.h"
#include "engine/tasks/task_branches.h"
#include "engine/tasks/workspace_operations.h"
#include "platform/files/files.h"
#include "platform/text/text.h"
#include "presentation/conversation_markdown.h"
#include "presentation/spoken_text.h"
#include "records/stores/conversation_json.h"
#include "shell/terminal/command_groups.h"
#include "shell/terminal/run_plan.h"
#include "shell/terminal/task_lookup.h"
#include "shell/terminal/task_words.h"
#include "shell/terminal/terminal_text.h"
#include "shell/terminal/transcript_printer.h"
#include "views/task_search.h"

namespace vantrell::shell {

namespace {

// ---- show ---------------------------------------------------------------------------------------

std::string headOf(const Workspace& workspace, const ChatThread& thread, Date now,
                   const TerminalStyle& style) {
  std::string head = style.bold(titleOf(thread)) + "\n";
  const auto line = [&](std::string_view label, std::string_view value) {
    head += fmt::format("  {} {}\n", style.dim(fmt::format("{:<8}", label)), onOneLine(value));
  };
  line("Task", thread.id.text() + (thread.isPinned ? ", pinned" : "") +
                   (thread.isArchived ? ", archived" : ""));
  line("Project",
       workspace.name + "  " + withTilde(thread.isolatedWorkspacePath.value_or(workspace.path)));
  for (const auto provider : allAgentProviders) {
    const auto session = thread.sessionID(provider), model = thread.modelID(provider);
    const bool hasRun =
        std::ranges::find(thread.runs, provider, &RunRecord::provider) != thread.runs.end();
    if (!hasRun && !session) continue;
    line("With", std::string(shortLabel(provider)) + (model ? fmt::format(" ({})", *model) : "") +
                     (session ? fmt::format(", session {}", *session) : ""));
  }
  line(
      "Changed",
      ago(thread.updatedAt, now) +
          // Unknown for some that were imported.
          (thread.createdAt == Date::distantPast() ? "" : ", begun " + ago(thread.createdAt, now)));
  if (const RunRecord* run = thread.latestRun()) {
    line("Runs", fmt::format("{}, the last one {}", thread.runs.size(),
                             views::word(views::taskState(run->status))));
  }
  return head;
}

Outcome showRuns(CommandContext& context, const ChatThread& thread, std::size_t first, Date now) {
  TextTable table({{"BEGUN"}, {"STATE"}, {"WITH"}, {"TOOK"}, {"PROMPT", 12}, {"OUTCOME", 12}});
  for (std::size_t i = first; i < thread.runs.size(); ++i) {
    const auto run = views::runRow(thread.runs[i], now);
    table.add({{run.begun},
               stateCell(run.state),
               {run.provider ? std::string(shortLabel(*run.provider)) : ""},
               {thread.runs[i].completedAt ? run.lasted : ""},
               {run.prompt},
               {run.message, look::dim}});
  }
  return context.showTable(table, thread.runs.empty(), "This task has no runs yet.\n");
}

Outcome showEntries(CommandContext& context, const ChatThread& thread, std::size_t first) {
  TextTable table({{"ENTRY"}, {"KIND"}, {"TEXT", 20}});
  const auto ids = views::shortEntryIDs(thread);
  for (std::size_t i = first; i < ids.size(); ++i) {
    const ChatEntry& entry = thread.entries[i];
    const bool isTool = entry.kind == ChatEntryKind::tool;
    table.add({{ids[i], look::cyan},
               {std::string(rawText(entry.kind)), look::dim},
               {isTool ? entry.title.value_or("") : entry.text}});
  }
  return context.showTable(table, ids.empty(), "Nothing was said yet.\n");
}

/// The record as it is stored, from that entry on.
std::string recordOf(ChatThread thread, std::size_t first) {
  std::string json;
  JsonWriter writer(json);
  const auto begin = thread.entries.begin() + static_cast<std::ptrdiff_t>(first);
  thread.entries = Transcript(std::vector<ChatEntry>(begin, thread.entries.end()));
  writeJson(writer, thread, conversationJson);
  return json;
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
  std::string waiting;
  for (const auto& queued : thread.queuedPrompts) {
    waiting += fmt::format("{} {}\n", style.yellow("waits:"), onOneLine(queued.text));
  }
  if (!thread.draftText.value_or("").empty()) {
    waiting += fmt::format("{} {}\n", style.yellow("draft:"), onOneLine(*thread.draftText));
  }
  if (!waiting.empty()) console.write("\n" + waiting);
}

Outcome show(CommandContext& context, const TaskView& task) {
  const auto& given = context.arguments;
  const bool wantsTable = given.has("--runs") || given.has("--entries");
  if ((given.has("--runs") && given.has("--entries")) || (wantsTable && context.isJson())) {
    return usageError("--runs, --entries and --json exclude each other. --json has all runs.");
  }
  if (given.has("--entry") && (given.has("--last") || wantsTable)) {
    return usageError("--entry says where to begin. Leave out --last, --runs and --entries.");
  }
  const auto& [workspace, thread, now] = task;
  const std::size_t most = given.count("--last").value_or(std::string::npos);
  const auto beforeLast = [most](std::size_t count) { return count - std::min(count, most); };
  std::size_t first = beforeLast(thread.entries.size());
  if (given.has("--entries")) return showEntries(context, thread, first);
  if (const auto entry = given.value("--entry")) {
    const auto found = findEntry(thread, *entry);
    if (!found) return std::unexpected(found.error());
    first = *found;
  }
  if (context.isJson()) return context.tell(recordOf(thread, first) + "\n");
  context.console.write(headOf(workspace, thread, now, context.style()));
  if (given.has("--runs")) {
    context.console.write("\n");
    return showRuns(context, thread, beforeLast(thread.runs.size()), now);
  }
  printTranscript(context.console, thread, first);
  return exitStatus::completed;
}

// ---- export, say --------------------------------------------------------------------------------

Outcome exportTask(CommandContext& context, const TaskView& task) {
  const auto& thread = task.thread;
  const std::string document =
      ConversationMarkdown::render(thread.title, task.workspace.name, thread.entries);
  if (context.arguments.words.size() == 1 || context.word(1) == "-") {
    return context.tell(document);
  }
  const std::string path = context.absolute(context.word(1));
  if (!context.arguments.has("--replace") && files::exists(path)) {
    return usageError(
        fmt::format("\"{}\" exists already. --replace writes over it.", context.word(1)));
  }
  return context.after(writeExport(path, document, true), [] {});
}

Outcome say(CommandContext& context, const TaskView& task) {
  const auto& thread = task.thread;
  for (std::size_t i = thread.entries.size(); i-- > 0;) {
    const ChatEntry& entry = thread.entries[i];
    if (entry.kind != ChatEntryKind::assistant) continue;
    const std::string spoken = SpokenText::render(entry.text);
    // A synthesizer must not get control characters either.
    if (!spoken.empty()) return context.tell(onOneLine(spoken) + "\n");
  }
  return context.refused({"There is no answer in this task yet."});
}

// ---- new, fork, rename, move, pin, archive, delete ----------------------------------------------

/// Tells about a task that is changed: a sentence, or the object.
void report(CommandContext& context, const ThreadExecutionKey& key, std::string_view done) {
  const auto& workspaces = context.model().tree().workspaces();
  const auto& thread = threadOf(workspaces, key);
  context.report(taskAsJson(workspaceOf(workspaces, key.workspaceID), thread),
                 fmt::format("{}  {}: {}\n", shortID(key.threadID), done, titleOf(thread)));
}

/// A task of its own in the project, which is added if it is a folder that is not known yet.
std::expected<ThreadExecutionKey, UsageError> makeTask(const CommandContext& context,
                                                       AppModel& model) {
  const auto& workspaces = model.tree().workspaces();
  const auto named = context.arguments.value(projectOption.name).value_or(".");
  const auto project = findProject(workspaces, named, context.caller.folder);
  const std::string folder = context.absolute(named);
  const auto there = std::ranges::find(workspaces, folder, &Workspace::path);
  const bool isKnown = there != workspaces.end();
  // A short name of a folder may also be the beginning of the ID of some project.
  const bool isNew = !isKnown && files::isFolder(folder) &&
                     !(project && text::lowercased(workspaceOf(workspaces, *project).name) ==
                                      text::lowercased(named));
  if (!isNew && !isKnown && !project) return std::unexpected(project.error());
  const auto made = isNew ? model.operations().addWorkspace(folder)  // with its first task
                          : model.operations().newThread(project ? *project : there->id);
  if (!made) return usageError(made.error().sentence);
  return *model.selection().key();
}

void makeNewTask(CommandContext& context) {
  const bool isNamed = !context.arguments.words.empty();
  if (isNamed && text::trimmed(context.word(0)).empty()) {
    return context.misused(
        "The title is empty. Leave it out, and the first prompt names the task.");
  }
  context.change([&](AppModel& model) -> Outcome {
    const auto key = makeTask(context, model);
    if (!key) return std::unexpected(key.error());
    const auto named = isNamed ? model.operations().renameThread(key->threadID, key->workspaceID,
                                                                 text::repaired(context.word(0)))
                               : Result<>();
    return context.after(named, [&] {
      const auto& project = *model.tree().workspace(key->workspaceID);
      report(context, *key, fmt::format("new in {}", onOneLine(project.name)));
    });
  });
}

Outcome fork(CommandContext& context, AppModel& model, const ThreadExecutionKey& key) {
  std::optional<std::string> through;
  if (const auto named = context.arguments.value("--through")) {
    const ChatThread& thread = *model.tree().thread(key);
    const auto place = findEntry(thread, *named);
    if (!place) return std::unexpected(place.error());
    through = thread.entries[*place].id;
  }
  const auto made = model.branches().forkThread(key, through);
  if (!made) return context.refused(made.error());
  static_cast<void>(model.navigation().selectThread(made->threadID, made->workspaceID));
  report(context, *made, fmt::format("forked from {}", shortID(key.threadID)));
  return exitStatus::completed;
}

void rename(CommandContext& context) {
  if (text::trimmed(context.word(1)).empty()) return context.misused("The new title is empty.");
  context.changeTask([&](AppModel& model, const ThreadExecutionKey& key) {
    const std::string title = text::repaired(context.word(1));
    return context.after(model.operations().renameThread(key.threadID, key.workspaceID, title),
                         [&] { report(context, key, "renamed"); });
  });
}

Outcome move(CommandContext& context, AppModel& model, const ThreadExecutionKey& key) {
  const auto project =
      findProject(model.tree().workspaces(), context.word(1), context.caller.folder);
  if (!project) return std::unexpected(project.error());
  return context.after(model.operations().moveThread(key.threadID, key.workspaceID, *project), [&] {
    report(context, {*project, key.threadID},
           fmt::format("is in {}", onOneLine(model.tree().workspace(*project)->name)));
  });
}

/// Does the same to each task that is named, and reports it.
void changeEach(CommandContext& context, std::string_view done,
                const std::function<Result<>(AppModel&, const ThreadExecutionKey&)>& operation) {
  context.change([&](AppModel& model) -> Outcome {
    const auto keys = findTasks(model.tree().workspaces(), context.arguments.words);
    if (!keys) return std::unexpected(keys.error());
    for (const auto& key : *keys) {
      const auto result = operation(model, key);
      if (!result) return context.refused(result.error());
      report(context, key, done);
    }
    return exitStatus::completed;
  });
}

void pin(CommandContext& context) {
  const bool pinned = !context.arguments.has(offOption.name);
  changeEach(context, pinned ? "pinned" : "not pinned",
             [pinned](AppModel& model, const ThreadExecutionKey& key) {
               return model.tree().thread(key)->isPinned == pinned
                          ? Result<>()
                          : model.operations().toggleThreadPin(key.threadID, key.workspaceID);
             });
}

void archive(CommandContext& context) {
  const bool archived = !context.arguments.has(offOption.name);
  changeEach(context, archived ? "archived" : "not archived",
             [archived](AppModel& model, const ThreadExecutionKey& key) {
               return model.operations().setThreadArchived(key.threadID, key.workspaceID, archived);
             });
}

std::string questionBefore(const std::vector<Workspace>& workspaces,
                           const std::vector<ThreadExecutionKey>& keys) {
  std::string question = "To be deleted for good:\n";
  for (const auto& key : keys) {
    const auto& thread = threadOf(workspaces, key);
    question += fmt::format("  \"{}\" in {} (entries: {})\n", titleOf(thread),
                            onOneLine(workspaceOf(workspaces, key.workspaceID).name),
                            thread.entries.size());
  }
  return question + "Go on?";
}

Outcome removeAll(CommandContext& context, AppModel& model,
                  const std::vector<ThreadExecutionKey>& keys) {
  for (const auto& key : keys) {
    if (!model.tree().thread(key)) continue;  // deleted by another command meanwhile
    report(context, key, "deleted");
    const auto worktree = model.tree().thread(key)->isolatedWorkspacePath;
    const auto done = model.operations().deleteThread(key.threadID, key.workspaceID);
    if (!done) return context.refused(done.error());
    if (worktree && files::isFolder(*worktree)) {
      context.complain(
          fmt::format("Its worktree stays: {}. To remove it: git worktree remove FOLDER",
                      onOneLine(*worktree)));
    }
  }
  return exitStatus::completed;
}

void remove(CommandContext& context) {
  context.open({}, [&context](VantrellApp& app) {
    AppModel& model = app.model();
    const auto keys = findTasks(model.tree().workspaces(), context.arguments.words);
    if (!keys) return context.misused(keys.error());
    context.confirm(questionBefore(model.tree().workspaces(), *keys),
                    [&, keys = *keys] { context.finish(removeAll(context, model, keys)); });
  });
}

// ---- their help ---------------------------------------------------------------------------------

constexpr CommandOption showOptions[] = {
    {"--last", "N", "only the last N entries (or runs)", {}, true},
    {"--entry", "ENTRY", "only from this entry on, as search names it"},
    {"--runs", "", "the runs, in place of what was said"},
    {"--entries", "", "what was said, one line an entry, with the entries' IDs"},
    {"--json", "", "for scripts: the record as it is stored, one JSON object"},
};
constexpr CommandOption exportOptions[] = {{"--replace", "", "write over an existing file"}};
constexpr CommandOption newOptions[] = {projectOption, jsonOption};
constexpr CommandOption forkOptions[] = {
    {"--through", "ENTRY", "only up to this entry and with it, as show --entries names it"},
    jsonOption,
};

constexpr Command commands[] = {
    {"show", "ID", "show a task: what was said and done", showOptions, viewing<show>, "",
     "Examples:\n"
     "  vantrell show 3F2A --last 5\n"
     "  vantrell show 3F2A --json | jq -r '.entries[] | select(.kind == \"assistant\").text'"},
    {"export", "ID [FILE]", "a task's conversation as a Markdown document", exportOptions,
     viewing<exportTask>,
     "Writes what was said in a task as Markdown, to standard output or to FILE. Thoughts\n"
     "and tool calls are left out."},
    {"say", "ID", "the last answer of a task as text for speech", noOptions, viewing<say>,
     "Prints the last answer of a task on one line, without markup and code.",
     "Example:\n"
     "  vantrell say 3F2A | espeak-ng"},
    {"new", "[TITLE]", "make a new task, to be run later", newOptions, makeNewTask,
     "Makes a new task and selects it. Without a title, its first prompt names it. A folder\n"
     "that is not a project yet becomes one."},
    {"fork", "ID", "copy a task, to go on with it in another way", forkOptions, changing<fork>,
     "Makes a task with what was said in another one, and its choices. It works in the\n"
     "project's folder and begins sessions of its own; the other one stays as it is."},
    {"rename", "ID TITLE", "give a task another title", onlyJson, rename},
    {"move", "ID PROJECT", "move a task to another project", onlyJson, changing<move>,
     "Moves a task to another project. Sessions and checkpoints are bound to the old folder\n"
     "and do not come along: the next run begins a new session."},
    {"pin", "ID...", "list tasks before the others", offAndJson, pin},
    {"archive", "ID...", "hide tasks from the lists, or show them again (--off)", offAndJson,
     archive, "", "An archived task keeps everything; it is no longer pinned."},
    {"delete", "ID...", "delete tasks for good, with all that was said in them", yesAndJson, remove,
     "", "At a terminal it asks first; elsewhere it takes --yes. Files of the project stay."},
};

}  // namespace

std::span<const Command> taskCommands() {
  return commands;
}

}  // namespace vantrell::shell
