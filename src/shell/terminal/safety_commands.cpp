// What a task has changed, notes on it, and the way back: diff, review, checkpoint, isolate.
#include <fmt/format.h>

#include "app/user_state.h"
#include "engine/core/workspace_tree.h"
#include "engine/projects/review_notes.h"
#include "engine/projects/task_safety.h"
#include "platform/text/text.h"
#include "project/git_workspace_service.h"
#include "project/unified_diff_parser.h"
#include "records/stores/conversation_json.h"
#include "records/stores/orchestration_store.h"
#include "records/stores/review_annotation.h"
#include "shell/terminal/command_context.h"
#include "shell/terminal/command_groups.h"
#include "shell/terminal/task_lookup.h"
#include "shell/terminal/task_words.h"
#include "shell/terminal/terminal_text.h"

namespace vantrell::shell {

namespace {

// ---- diff ---------------------------------------------------------------------------------------

/// "+3 -1", or nothing where git does not count them.
std::string lineCounts(const std::optional<std::int64_t>& additions,
                       const std::optional<std::int64_t>& deletions, const TerminalStyle& style) {
  if (!additions && !deletions) return {};
  return fmt::format("{} {}", style.green(fmt::format("+{}", additions.value_or(0))),
                     style.red(fmt::format("-{}", deletions.value_or(0))));
}

std::string headOf(const GitWorkspaceSnapshot& snapshot, const std::string& folder,
                   const TerminalStyle& style) {
  std::string changes = "nothing has changed";
  if (snapshot.error) {
    changes = style.red(onOneLine(*snapshot.error));
  } else if (!snapshot.files.empty()) {
    changes = fmt::format("{} changed, {}", counted(snapshot.files.size(), "file"),
                          lineCounts(snapshot.additions(), snapshot.deletions(), style));
  }
  std::string text = fmt::format("{} in {}: {}\n", style.bold(onOneLine(snapshot.branch)),
                                 onOneLine(withTilde(folder)), changes);
  for (const auto& file : snapshot.files) {
    const auto counts = lineCounts(file.additions, file.deletions, style);
    text += fmt::format("  {} {}{}{}\n", style.yellow(sanitized(file.status)), onOneLine(file.path),
                        counts.empty() ? "" : "  ", counts);
  }
  return text;
}

void writeDiff(std::string_view diff, Console& console) {
  const auto& style = console.style();
  for (const auto line : text::split(diff.substr(0, diff.find_last_not_of('\n') + 1), '\n')) {
    if (console.isClosed()) return;
    const std::string clean = sanitized(line);
    const bool isHeading =
        line.starts_with("diff --git ") || line == "STAGED CHANGES" || line == "WORKING CHANGES";
    console.write((line.starts_with("@@")  ? style.cyan(clean)
                   : line.starts_with('+') ? style.green(clean)
                   : line.starts_with('-') ? style.red(clean)
                   : isHeading             ? style.bold(clean)
                                           : clean) +
                  "\n");
  }
  if (UnifiedDiffParser::isCut(diff)) {
    console.write("\nThe diff is long, and this is its beginning. git has all of it.\n");
  }
}

JsonObject asJson(const GitWorkspaceSnapshot& snapshot, const std::string& folder) {
  Json::Array files, hunks;
  for (const auto& file : snapshot.files) {
    files.push_back(withoutNulls({{"path", file.path},
                                  {"status", file.status},
                                  {"additions", orNull(file.additions)},
                                  {"deletions", orNull(file.deletions)}}));
  }
  for (const auto& hunk : UnifiedDiffParser::parse(snapshot.diff)) {
    hunks.push_back(JsonObject{{"filePath", hunk.filePath},
                               {"header", hunk.header},
                               {"body", hunk.body},
                               {"additions", hunk.additions},
                               {"deletions", hunk.deletions}});
  }
  return withoutNulls({{"path", text::repaired(folder)},
                       {"isRepository", snapshot.isRepository},
                       {"branch", snapshot.branch},
                       {"additions", snapshot.additions()},
                       {"deletions", snapshot.deletions()},
                       {"error", orNull(snapshot.error)},
                       {"files", std::move(files)},
                       {"hunks", std::move(hunks)},
                       {"diff", snapshot.diff}});
}

void showChanges(CommandContext& context, const std::string& folder) {
  const auto snapshot = std::make_shared<GitWorkspaceSnapshot>();
  const auto show = [&context, snapshot, folder] {
    if (context.isJson()) {
      context.writeJson(asJson(*snapshot, folder));
    } else if (!snapshot->isRepository) {
      context.complain(withTilde(folder) + " is not in a Git repository, or Git is not installed.");
    } else {
      context.console.write(headOf(*snapshot, folder, context.style()));
      if (!context.arguments.has("--stat") && !snapshot->diff.empty()) {
        context.console.write("\n");
        writeDiff(snapshot->diff, context.console);
      }
    }
    const bool isWhole = snapshot->isRepository && !snapshot->error;
    context.finish(isWhole ? exitStatus::completed : exitStatus::failed);
  };
  context.inBackground([snapshot, folder] { *snapshot = GitWorkspaceService::read(folder); }, show);
}

void diff(CommandContext& context) {
  const auto& words = context.arguments.words;
  if (words.empty() && !context.arguments.has("--project")) {
    return showChanges(context, context.caller.folder);
  }
  const auto stored = context.stored();
  if (!stored) return context.fail(stored.error());
  const auto task = words.empty() ? std::nullopt : std::optional(words[0]);
  const auto place = context.placeOf(task, stored->workspaces);
  place ? showChanges(context, place->folder) : context.misused(place.error());
}

// ---- review -------------------------------------------------------------------------------------

std::string inWords(const ReviewAnnotation& note, Date now, const TerminalStyle& style) {
  const std::string place =
      note.line ? fmt::format("{}:{}", note.filePath, *note.line) : note.filePath;
  std::string text = fmt::format("{}  {}  {}\n", style.bold(onOneLine(place)),
                                 rawText(note.decision), style.dim(ago(note.createdAt, now)));
  const std::string body = sanitized(note.body);
  for (const auto line : text::split(body, '\n')) text += fmt::format("  {}\n", line);
  return text;
}

Outcome listNotes(CommandContext& context, const TaskView& task) {
  auto store = UserFolders{}.orOwn().orchestrationForReading();
  const auto notes =
      annotationsOf({task.workspace.id, task.thread.id}, loadReviewAnnotations(store));
  for (const auto& note : notes) {
    context.report(encodeReviewAnnotation(note), inWords(note, task.now, context.style()));
  }
  if (notes.empty() && !context.isJson()) {
    context.console.say("No notes yet. To write one: vantrell review ID FILE --line 12 \"...\"\n");
  }
  return exitStatus::completed;
}

void addNote(CommandContext& context) {
  const std::string body = text::repaired(context.word(2));
  if (text::trimmed(body).empty()) return context.misused("The note is empty.");
  context.changeTask([&](AppModel& model, const ThreadExecutionKey& key) {
    std::optional<std::int64_t> line;
    if (const auto count = context.arguments.count("--line")) {
      line = static_cast<std::int64_t>(*count);
    }
    const auto decision = context.arguments.choice<ReviewDecision>("--decision");
    const auto added =
        model.reviews().addReviewAnnotation(text::repaired(context.word(1)), line, body,
                                            decision.value_or(ReviewDecision::pending), key);
    return context.after(added, [&] {
      context.report(encodeReviewAnnotation(model.reviews().reviewAnnotations().back()),
                     fmt::format("{}  noted: {}\n", shortID(key.threadID),
                                 titleOf(*model.tree().thread(key))));
    });
  });
}

void review(CommandContext& context) {
  const std::size_t words = context.arguments.words.size();
  if (words == 3) return addNote(context);
  if (words == 2 || context.arguments.has("--line") || context.arguments.has("--decision")) {
    return context.misused("To write a note: vantrell review ID FILE \"what there is to say\"");
  }
  viewing<listNotes>(context);
}

// ---- checkpoint, isolate ------------------------------------------------------------------------

Outcome listCheckpoints(CommandContext& context, const TaskView& task) {
  const auto cells = [&](const WorkspaceCheckpoint& each) -> std::vector<TableCell> {
    return {idCell(each.id),
            {each.label},
            {ago(each.createdAt, task.now), look::dim},
            {fmt::format("{}", each.changedFileCount)},
            {fmt::format("{}", each.conversationEntryCount)},
            {std::string(rawText(each.kind)), look::dim}};
  };
  return context.showList(
      task.thread.checkpoints,
      TextTable({{"CHECKPOINT"}, {"LABEL", 20}, {"TAKEN"}, {"CHANGES"}, {"ENTRIES"}, {"KIND"}}),
      encodeCheckpoint, cells,
      "No checkpoints. Each prompt takes one in a Git repository that has a commit.\n");
}

/// For the safety service: what it had to say, then the report.
TaskSafety::Done whenSafe(CommandContext& context, const ThreadExecutionKey& key,
                          std::function<void()> report) {
  // A restore that is left half way is the worst of all ends.
  const auto signal = std::make_shared<int>(0);
  context.keep(context.caller.watchSignals([&context, signal](int number) {
    *signal = number;
    context.complain("This cannot stop half way. It is finished first.");
  }));
  return context.whileAlive(
      [&context, key, signal, report = std::move(report)](const Result<>& done) {
        for (const auto& note : context.model().safety().notes(key))
          context.complain(onOneLine(note));
        const auto outcome = context.after(done, report);
        context.finish(done && *signal != 0 ? 128 + *signal : outcome);
      });
}

void makeCheckpoint(CommandContext& context) {
  context.openTask([&context](AppModel& model, const ThreadExecutionKey& key) {
    const auto report = [&context, &model, key] {
      const auto& made = model.tree().thread(key)->checkpoints.front();
      context.report(
          encodeCheckpoint(made),
          fmt::format("{}  {} ({})\n", shortID(made.id), onOneLine(made.label),
                      counted(static_cast<std::size_t>(made.changedFileCount), "change")));
    };
    const bool isNamed = context.arguments.words.size() > 1;
    model.safety().createCheckpoint(key,
                                    isNamed ? text::repaired(context.word(1)) : "Manual checkpoint",
                                    whenSafe(context, key, report));
  });
}

void restoreCheckpoint(CommandContext& context) {
  context.openTask([&context](AppModel& model, const ThreadExecutionKey& key) {
    const std::string task = shortID(key.threadID);
    const auto found = findByID(model.tree().thread(key)->checkpoints, context.word(1),
                                "checkpoint of this task", "checkpoint list " + task);
    if (!found) return context.misused(found.error());
    const WorkspaceCheckpoint chosen = **found;
    const auto report = [&context, &model, key, chosen, task] {
      const auto& recovery = model.tree().thread(key)->checkpoints.front();
      context.report(encodeCheckpoint(chosen),
                     fmt::format("{}  restored: {}\n"
                                 "To go back: {} {} {}\n",
                                 shortID(chosen.id), onOneLine(chosen.label),
                                 context.console.asTyped("vantrell checkpoint restore"), task,
                                 shortID(recovery.id)));
    };
    context.confirm(
        fmt::format("{} \"{}\", {}\n"
                    "Restore this checkpoint?\n"
                    "vantrell will first save a recovery checkpoint, then restore the files and "
                    "conversation to this point.",
                    shortID(chosen.id), onOneLine(chosen.label),
                    ago(chosen.createdAt, context.main.now())),
        [&context, &model, key, chosen, report] {
          model.safety().restoreCheckpoint(key, chosen, whenSafe(context, key, report));
        });
  });
}

void isolate(CommandContext& context) {
  context.openTask([&context](AppModel& model, const ThreadExecutionKey& key) {
    const auto report = [&context, &model, key] {
      const auto path = model.tree().executionPath(key).value_or("");
      context.report(JsonObject{{"workspaceID", key.workspaceID.text()},
                                {"threadID", key.threadID.text()},
                                {"path", path}},
                     fmt::format("{}  works in {}\n", shortID(key.threadID), onOneLine(path)));
      if (path == model.tree().workspace(key.workspaceID)->path) {
        context.complain("Its worktree is gone, so it works in the project's folder again.");
      }
    };
    model.safety().setTaskWorkspaceMode(key, TaskWorkspaceMode::isolated,
                                        whenSafe(context, key, report));
  });
}

// ---- their help ---------------------------------------------------------------------------------

constexpr CommandOption diffOptions[] = {
    {"--project", "PROJECT", "the folder of this project: its name, folder or ID"},
    {"--stat", "", "only the files, without their hunks"},
    jsonOption,
};
constexpr CommandOption reviewOptions[] = {
    {"--line", "N", "the line of the file that the note is about", {}, true},
    {"--decision", "D", "pending (default), accepted or rejected", choicesOf<ReviewDecision>},
    jsonOption,
};
constexpr Command checkpointCommands[] = {
    {"list", "ID", "the task's checkpoints, newest first", onlyJson, viewing<listCheckpoints>},
    {"make", "ID [LABEL]", "take one now", onlyJson, makeCheckpoint},
    {"restore", "ID CHECKPOINT",
     "put files and conversation back; CHECKPOINT is any beginning of its ID", yesAndJson,
     restoreCheckpoint},
};

constexpr Command commands[] = {
    {"diff", "[ID]", "show what has changed in a project or a task's worktree", diffOptions, diff,
     "Shows the state of Git in the folder in which a task works, of a project, or of the\n"
     "current folder: the branch, the changed files with their lines, and the hunks.",
     "The two letters before a file are those of git status: index, then working tree.\n"
     "\n"
     "Exit status: 0 done, 1 failed or not a Git repository, 2 wrong usage."},
    {"review", "ID [FILE NOTE]", "list or write notes on what a task has changed", reviewOptions,
     review, "",
     "Example:\n"
     "  vantrell review 3F2A91C0 src/main.cpp --line 40 --decision rejected \"leaks the "
     "socket\""},
    {"checkpoint", "", "go back to earlier files and an earlier conversation", noOptions, nullptr,
     "A checkpoint keeps what is not committed in a task's Git repository, and the length of\n"
     "the conversation. Each prompt takes one first.",
     "restore first takes a recovery checkpoint, which leads back. It asks at a terminal;\n"
     "elsewhere it takes --yes. Ignored files and submodules stay as they are.",
     checkpointCommands},
    {"isolate", "ID", "let a task work in a Git worktree of its own", onlyJson, isolate,
     "Gives a task a Git worktree outside the project, with a copy of all that is not\n"
     "committed, and shows where it is. The project keeps everything.",
     "This cannot be reversed: what the task changes reaches the project only by your own Git\n"
     "work. Ignored files are not copied."},
};

}  // namespace

std::span<const Command> safetyCommands() {
  return commands;
}

}  // namespace vantrell::shell
