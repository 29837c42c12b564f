// What a task has changed, and the way back: diff, review, checkpoint, isolate.
#include <fmt/format.h>

#include "engine/core/workspace_tree.h"
#include "engine/projects/review_notes.h"
#include "engine/projects/task_safety.h"
#include "platform/files/files.h"
#include "platform/text/text.h"
#include "platform/values/json.h"
#include "project/git_workspace_service.h"
#include "project/unified_diff_parser.h"
#include "records/stores/review_annotation.h"
#include "shell/terminal/command_context.h"
#include "shell/terminal/command_groups.h"
#include "shell/terminal/stored_orchestration.h"
#include "shell/terminal/task_lookup.h"
#include "shell/terminal/task_words.h"
#include "shell/terminal/terminal_text.h"

namespace vantrell::shell {

namespace {

// ---- diff ---------------------------------------------------------------------------------------

std::string lineCounts(const std::optional<std::int64_t>& additions,
                       const std::optional<std::int64_t>& deletions, const TerminalStyle& style) {
  if (!additions && !deletions) return {};
  return fmt::format("{} {}", style.green(fmt::format("+{}", additions.value_or(0))),
                     style.red(fmt::format("-{}", deletions.value_or(0))));
}

std::string headOf(const GitWorkspaceSnapshot& snapshot, const std::string& folder,
                   const TerminalStyle& style) {
  const std::size_t count = snapshot.files.size();
  const std::string changes =
      count == 0 ? std::string("nothing has changed")
                 : fmt::format("{} {} changed, {}", count, count == 1 ? "file" : "files",
                               lineCounts(snapshot.additions(), snapshot.deletions(), style));
  return fmt::format("{} in {}: {}\n", style.bold(onOneLine(snapshot.branch)),
                     onOneLine(withTilde(folder)),
                     snapshot.error ? style.red(onOneLine(*snapshot.error)) : changes);
}

/// The letter of the index as what is safe, that of the working tree as what is not.
std::string statusOf(const GitChangedFile& file, const TerminalStyle& style) {
  const std::string& status = file.status;
  const auto isLetter = [](char each) { return each >= ' ' && each <= '~'; };
  if (status.size() != 2 || !std::ranges::all_of(status, isLetter)) return onOneLine(status);
  if (status == "??") return style.yellow(status);
  return style.green(status.substr(0, 1)) + style.red(status.substr(1));
}

std::string filesOf(const GitWorkspaceSnapshot& snapshot, const TerminalStyle& style) {
  std::string text;
  for (const auto& file : snapshot.files) {
    const auto counts = lineCounts(file.additions, file.deletions, style);
    text += fmt::format("  {} {}{}{}\n", statusOf(file, style), onOneLine(file.path),
                        counts.empty() ? "" : "  ", counts);
  }
  return text;
}

std::string styled(std::string_view line, const TerminalStyle& style) {
  const std::string clean = sanitized(line);
  if (line.starts_with("diff --git ") || line == "STAGED CHANGES" || line == "WORKING CHANGES") {
    return style.bold(clean);
  }
  if (line.starts_with("@@")) return style.cyan(clean);
  if (line.starts_with('+')) return style.green(clean);
  return line.starts_with('-') ? style.red(clean) : clean;
}

/// Git's limit on what is kept leaves a part of the diff without the end of its last line.
bool wasCut(std::string_view diff) {
  constexpr std::string_view seam = "\n\nWORKING CHANGES\n\n";
  const auto place = diff.starts_with("STAGED CHANGES") ? diff.find(seam) : std::string_view::npos;
  const auto isWhole = [](std::string_view part) { return part.empty() || part.ends_with('\n'); };
  return !isWhole(diff) || (place != std::string_view::npos && !isWhole(diff.substr(0, place)));
}

void writeDiff(std::string_view diff, Console& console) {
  if (diff.empty()) return;
  const auto& style = console.style();
  console.write("\n");
  for (const auto line :
       text::split(diff.ends_with('\n') ? diff.substr(0, diff.size() - 1) : diff, '\n')) {
    if (console.isClosed()) return;
    console.write(styled(line, style) + "\n");
  }
  if (wasCut(diff)) {
    console.write(
        "\n" + style.dim("The diff is long, and this is its beginning. git has all of it.") + "\n");
  }
}

std::string asJson(const GitWorkspaceSnapshot& snapshot, const std::string& folder) {
  Json::Array files, hunks;
  for (const auto& file : snapshot.files) {
    JsonObject each{{"path", file.path}, {"status", file.status}};
    if (file.additions) each.set("additions", *file.additions);
    if (file.deletions) each.set("deletions", *file.deletions);
    files.push_back(std::move(each));
  }
  for (const auto& hunk : UnifiedDiffParser::parse(snapshot.diff)) {
    hunks.push_back(JsonObject{{"filePath", hunk.filePath},
                               {"header", hunk.header},
                               {"body", hunk.body},
                               {"additions", hunk.additions},
                               {"deletions", hunk.deletions}});
  }
  JsonObject all{{"path", text::repaired(folder)},
                 {"isRepository", snapshot.isRepository},
                 {"branch", snapshot.branch},
                 {"additions", snapshot.additions()},
                 {"deletions", snapshot.deletions()}};
  if (snapshot.error) all.set("error", *snapshot.error);
  all.set("files", std::move(files));
  all.set("hunks", std::move(hunks));
  all.set("diff", snapshot.diff);
  return json::write(all) + "\n";
}

void showChanges(CommandContext& context, const std::string& folder) {
  const auto snapshot = std::make_shared<GitWorkspaceSnapshot>();
  context.inBackground([snapshot, folder] { *snapshot = GitWorkspaceService::read(folder); },
                       [&context, snapshot, folder] {
                         Console& console = context.console;
                         if (context.isJson()) {
                           console.write(asJson(*snapshot, folder));
                         } else if (!snapshot->isRepository) {
                           context.complain(
                               fmt::format("{} is not in a Git repository, or Git is not "
                                           "installed.",
                                           withTilde(folder)));
                         } else {
                           console.write(headOf(*snapshot, folder, context.style()) +
                                         filesOf(*snapshot, context.style()));
                           if (!context.arguments.has("--stat")) writeDiff(snapshot->diff, console);
                         }
                         const bool isWhole = snapshot->isRepository && !snapshot->error;
                         context.finish(isWhole ? exitStatus::completed : exitStatus::failed);
                       });
}

void diff(CommandContext& context) {
  const auto project = context.arguments.value("--project");
  const bool hasTask = !context.arguments.words.empty();
  if (hasTask && project) {
    return context.misused("A task has its own folder. Leave out --project.");
  }
  if (!hasTask && !project) return showChanges(context, context.caller.folder);
  const auto stored = context.stored();
  if (!stored) return context.fail(stored.error());
  const auto& workspaces = stored->workspaces;
  if (project) {
    const auto id = findProject(workspaces, *project, context.caller.folder);
    if (!id) return context.misused(id.error());
    return showChanges(context, workspaceOf(workspaces, *id).path);
  }
  const auto key = findTask(workspaces, context.word(0));
  if (!key) return context.misused(key.error());
  showChanges(context,
              executionPath(workspaceOf(workspaces, key->workspaceID), threadOf(workspaces, *key)));
}

// ---- review -------------------------------------------------------------------------------------

std::string styled(ReviewDecision decision, const TerminalStyle& style) {
  const auto word = rawText(decision);
  switch (decision) {
    case ReviewDecision::accepted: return style.green(word);
    case ReviewDecision::rejected: return style.red(word);
    default: return style.yellow(word);
  }
}

std::string shown(const ReviewAnnotation& note, Date now, const TerminalStyle& style) {
  const std::string place =
      note.line ? fmt::format("{}:{}", note.filePath, *note.line) : note.filePath;
  std::string text = fmt::format("{}  {}  {}\n", style.bold(onOneLine(place)),
                                 styled(note.decision, style), style.dim(ago(note.createdAt, now)));
  const std::string body = sanitized(note.body);
  for (const auto line : text::split(body, '\n')) text += fmt::format("  {}\n", line);
  return text;
}

void listNotes(CommandContext& context) {
  context.view([&](const StateView& state) -> Outcome {
    const auto key = findTask(state.workspaces, context.word(0));
    if (!key) return std::unexpected(key.error());
    auto store = storedOrchestration();
    const auto notes = annotationsOf(*key, loadReviewAnnotations(store));
    for (const auto& note : notes) {
      context.console.write(context.isJson() ? encodeReviewAnnotation(note) + "\n"
                                             : shown(note, state.now, context.style()));
    }
    if (notes.empty() && !context.isJson()) {
      context.console.say(
          fmt::format("No notes yet. To write one: vantrell review {} FILE --line 12 \"...\"\n",
                      shortID(key->threadID)));
    }
    return exitStatus::completed;
  });
}

void addNote(CommandContext& context) {
  const std::string body = text::repaired(context.word(2));
  if (text::trimmed(body).empty()) return context.misused("The note is empty.");
  const auto line = context.arguments.count("--line");
  const auto decision = context.arguments.choice<ReviewDecision>("--decision");
  context.change([&](AppModel& model) -> Outcome {
    const auto key = findTask(model.tree().workspaces(), context.word(0));
    if (!key) return std::unexpected(key.error());
    const auto added = model.reviews().addReviewAnnotation(
        text::repaired(context.word(1)),
        line ? std::optional(static_cast<std::int64_t>(*line)) : std::nullopt, body,
        decision.value_or(ReviewDecision::pending), *key);
    if (!added) return context.refused(added.error());
    context.console.write(
        context.isJson() ? encodeReviewAnnotation(model.reviews().reviewAnnotations().back()) + "\n"
                         : fmt::format("{}  noted: {}\n", shortID(key->threadID),
                                       titleOf(*model.tree().thread(*key))));
    return exitStatus::completed;
  });
}

void review(CommandContext& context) {
  const std::size_t words = context.arguments.words.size();
  if (words == 2) {
    return context.misused("The note is missing: vantrell review ID FILE \"what there is to say\"");
  }
  if (words == 3) return addNote(context);
  if (context.arguments.has("--line") || context.arguments.has("--decision")) {
    return context.misused("--line and --decision go with a note: vantrell review ID FILE \"...\"");
  }
  listNotes(context);
}

// ---- checkpoint, isolate ------------------------------------------------------------------------

std::string asJson(const WorkspaceCheckpoint& checkpoint) {
  JsonObject all{{"id", checkpoint.id.text()},
                 {"label", checkpoint.label},
                 {"kind", rawText(checkpoint.kind)},
                 {"createdAt", checkpoint.createdAt.secondsSinceReference()}};
  if (checkpoint.baseRevision) all.set("baseRevision", *checkpoint.baseRevision);
  all.set("archivePath", checkpoint.archivePath);
  all.set("conversationEntryCount", checkpoint.conversationEntryCount);
  all.set("changedFileCount", checkpoint.changedFileCount);
  return json::write(all) + "\n";
}

void listCheckpoints(CommandContext& context) {
  context.viewTask([&](const StateView& state, const Workspace&, const ChatThread& thread) {
    const auto& checkpoints = thread.checkpoints;
    TextTable table({{"CHECKPOINT"},
                     {.heading = "LABEL", .least = 20},
                     {.heading = "KIND", .leavesAt = 3},
                     {.heading = "CHANGES", .leavesAt = 2},
                     {.heading = "ENTRIES", .leavesAt = 1},
                     {"TAKEN"}});
    for (const auto& each : checkpoints) {
      if (context.isJson()) context.console.write(asJson(each));
      table.add({{shortID(each.id), &TerminalStyle::cyan},
                 {each.label},
                 {std::string(rawText(each.kind)), &TerminalStyle::dim},
                 {fmt::format("{}", each.changedFileCount)},
                 {fmt::format("{}", each.conversationEntryCount)},
                 {ago(each.createdAt, state.now), &TerminalStyle::dim}});
    }
    return context.showTable(table, checkpoints.empty(),
                             "No checkpoints. Each prompt takes one in a Git repository.\n");
  });
}

/// For the safety service: what it had to say, then the report.
TaskSafety::Done whenSafe(CommandContext& context, std::function<void()> report) {
  // A restore that is left half way is the worst of all ends.
  const auto signal = std::make_shared<int>(0);
  context.keep(context.caller.watchSignals([&context, signal](int number) {
    *signal = number;
    context.complain("This cannot stop half way. It is finished first.");
  }));
  return [&context, signal, report = std::move(report)](const Result<>& done) {
    for (const auto& note : context.model().safety().notes()) context.complain(onOneLine(note));
    if (!done) return context.finish(context.refused(done.error()));
    report();
    context.finish(*signal == 0 ? exitStatus::completed : 128 + *signal);
  };
}

/// Opens the state with the task that the first word names.
void withTask(CommandContext& context,
              const std::function<void(AppModel&, const ThreadExecutionKey&)>& work) {
  context.open({}, [&](VantrellApp& app) {
    const auto key = findTask(app.model().tree().workspaces(), context.word(0));
    if (!key) return context.misused(key.error());
    work(app.model(), *key);
  });
}

void makeCheckpoint(CommandContext& context) {
  withTask(context, [&context](AppModel& model, const ThreadExecutionKey& key) {
    const bool isNamed = context.arguments.words.size() > 1;
    model.safety().createCheckpoint(
        key, isNamed ? text::repaired(context.word(1)) : std::string("Manual checkpoint"),
        whenSafe(context, [&context, &model, key] {
          const auto& made = model.tree().thread(key)->checkpoints.front();
          context.console.write(
              context.isJson() ? asJson(made)
                               : fmt::format("{}  {} ({} {})\n", shortID(made.id),
                                             onOneLine(made.label), made.changedFileCount,
                                             made.changedFileCount == 1 ? "change" : "changes"));
        }));
  });
}

std::expected<WorkspaceCheckpoint, UsageError> findCheckpoint(const ChatThread& thread,
                                                              std::string_view word) {
  const auto prefix = idPrefix(word);
  std::vector<const WorkspaceCheckpoint*> found;
  for (const auto& each : thread.checkpoints) {
    if (prefix && beginsWith(each.id, *prefix)) found.push_back(&each);
  }
  if (found.size() == 1) return *found.front();
  return usageError(fmt::format(
      "{} checkpoint of this task begins with \"{}\". To see them: vantrell checkpoint list {}",
      found.empty() ? "No" : "More than one", onOneLine(word), shortID(thread.id)));
}

void restoreCheckpoint(CommandContext& context) {
  withTask(context, [&context](AppModel& model, const ThreadExecutionKey& key) {
    const auto found = findCheckpoint(*model.tree().thread(key), context.word(1));
    if (!found) return context.misused(found.error());
    context.confirm(
        fmt::format("{} \"{}\", {}\n"
                    "Restore this checkpoint?\n"
                    "vantrell will first save a recovery checkpoint, then restore the files and "
                    "conversation to this point.",
                    shortID(found->id), onOneLine(found->label),
                    ago(found->createdAt, context.main.now())),
        [&context, &model, key, chosen = *found] {
          const auto report = [&context, &model, key, chosen] {
            const auto& recovery = model.tree().thread(key)->checkpoints.front();
            context.console.say(context.isJson()
                                    ? asJson(chosen)
                                    : fmt::format("{}  restored: {}\n"
                                                  "To go back: vantrell checkpoint restore {} {}\n",
                                                  shortID(chosen.id), onOneLine(chosen.label),
                                                  shortID(key.threadID), shortID(recovery.id)));
          };
          model.safety().restoreCheckpoint(key, chosen, whenSafe(context, report));
        });
  });
}

void isolate(CommandContext& context) {
  withTask(context, [&context](AppModel& model, const ThreadExecutionKey& key) {
    const auto report = [&context, &model, key] {
      const auto path = model.tree().executionPath(key).value_or("");
      if (context.isJson()) {
        return context.writeJson(JsonObject{{"workspaceID", key.workspaceID.text()},
                                            {"threadID", key.threadID.text()},
                                            {"path", path}});
      }
      context.console.write(
          fmt::format("{}  works in {}\n", shortID(key.threadID), onOneLine(path)));
      if (path == model.tree().workspace(key.workspaceID)->path) {
        context.complain("Its worktree is gone, so it works in the project's folder again.");
      }
    };
    model.safety().setTaskWorkspaceMode(key, TaskWorkspaceMode::isolated,
                                        whenSafe(context, report));
  });
}

// ---- their help ---------------------------------------------------------------------------------

constexpr CommandOption diffOptions[] = {
    {"--project", "PROJECT", "the folder of this project: its name, folder or ID"},
    {"--stat", "", "only the files, without their hunks"},
    {"--json", "", "for scripts: one JSON object"},
};
constexpr CommandOption reviewOptions[] = {
    {"--line", "N", "the line of the file that the note is about", {}, true},
    {"--decision", "D", "pending (default), accepted or rejected", choicesOf<ReviewDecision>},
    {"--json", "", "for scripts: the notes as they are stored, one JSON object a line"},
};
constexpr CommandOption checkpointOptions[] = {jsonOption};
constexpr CommandOption restoreOptions[] = {yesOption, jsonOption};
constexpr CommandOption isolateOptions[] = {
    {"--json", "", "for scripts: where it works, as a JSON object"}};

constexpr Command checkpointCommands[] = {
    {"list", "ID", "the task's checkpoints, newest first", checkpointOptions, 1, 1,
     listCheckpoints},
    {"make", "ID [LABEL]", "take one now", checkpointOptions, 1, 2, makeCheckpoint},
    {"restore", "ID CHECKPOINT",
     "put files and conversation back; CHECKPOINT is any beginning of its ID", restoreOptions, 2, 2,
     restoreCheckpoint},
};

constexpr Command commands[] = {
    {.name = "diff",
     .parameters = "[ID]",
     .summary = "show what has changed in a project or a task's worktree",
     .options = diffOptions,
     .maxWords = 1,
     .begin = diff,
     .introduction =
         "Shows the state of Git in the folder in which a task works, of a project, or of the\n"
         "current folder: the branch, the changed files with their lines, and the hunks. ID is\n"
         "any beginning of a task's ID that no other task has. Nothing is changed.",
     .closing = "The two letters before a file are those of git status: index, then working tree.\n"
                "\n"
                "Exit status: 0 done, 1 failed or not a Git repository, 2 wrong usage.\n"
                "\n"
                "Examples:\n"
                "  vantrell diff 3F2A91C0 | less\n"
                "  vantrell diff --stat --project website\n"
                "  vantrell diff --json | jq -r '.files[].path'"},
    {.name = "review",
     .parameters = "ID [FILE NOTE]",
     .summary = "list or write notes on what a task has changed",
     .options = reviewOptions,
     .minWords = 1,
     .maxWords = 3,
     .begin = review,
     .introduction =
         "Lists the notes on what a task has changed; with a file and a text, writes one.\n"
         "ID is any beginning of a task's ID that no other task has.",
     .closing =
         "Examples:\n"
         "  vantrell review 3F2A91C0\n"
         "  vantrell review 3F2A src/main.cpp --line 40 --decision rejected \"leaks the socket\""},
    {.name = "checkpoint",
     .summary = "go back to earlier files and an earlier conversation",
     .introduction =
         "A checkpoint keeps what is not committed in a task's Git repository, and the length of\n"
         "the conversation. Each prompt takes one first. ID is any beginning of a task's ID.",
     .closing =
         "restore first takes a recovery checkpoint, which leads back. It asks at a terminal;\n"
         "elsewhere it takes --yes. Ignored files and submodules stay as they are.\n"
         "\n"
         "Exit status: 0 done, 1 failed or refused, 2 wrong usage, 130 not confirmed.",
     .subcommands = checkpointCommands},
    {.name = "isolate",
     .parameters = "ID",
     .summary = "let a task work in a Git worktree of its own",
     .options = isolateOptions,
     .minWords = 1,
     .maxWords = 1,
     .begin = isolate,
     .introduction =
         "Gives a task a Git worktree outside the project, with a copy of all that is not\n"
         "committed, and shows where it is. The project keeps everything. ID is any beginning of\n"
         "a task's ID.",
     .closing =
         "This cannot be reversed: what the task changes reaches the project only by your own Git\n"
         "work. Ignored files are not copied."},
};

}  // namespace

std::span<const Command> safetyCommands() {
  return commands;
}

}  // namespace vantrell::shell
