// Notes on what a task has changed, and the way back: review, checkpoint, isolate.
#include <fmt/format.h>

#include "engine/core/workspace_tree.h"
#include "engine/projects/review_notes.h"
#include "engine/projects/task_safety.h"
#include "platform/text/text.h"
#include "records/stores/review_annotation.h"
#include "shell/terminal/command_context.h"
#include "shell/terminal/command_groups.h"
#include "shell/terminal/stored_orchestration.h"
#include "shell/terminal/task_lookup.h"
#include "shell/terminal/task_words.h"
#include "shell/terminal/terminal_text.h"

namespace vantrell::shell {

namespace {

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

void listNotes(CommandContext& context) {
  context.view([&](const StateView& state) -> Outcome {
    const auto key = findTask(state.workspaces, context.word(0));
    if (!key) return std::unexpected(key.error());
    auto store = storedOrchestration();
    const auto notes = annotationsOf(*key, loadReviewAnnotations(store));
    for (const auto& note : notes) {
      context.console.write(context.isJson() ? encodeReviewAnnotation(note) + "\n"
                                             : inWords(note, state.now, context.style()));
    }
    if (notes.empty() && !context.isJson()) {
      context.console.say(
          "No notes yet. To write one: vantrell review ID FILE --line 12 \"...\"\n");
    }
    return exitStatus::completed;
  });
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
      context.console.write(
          context.isJson()
              ? encodeReviewAnnotation(model.reviews().reviewAnnotations().back()) + "\n"
              : fmt::format("{}  noted: {}\n", shortID(key.threadID),
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
  listNotes(context);
}

// ---- checkpoint, isolate ------------------------------------------------------------------------

JsonObject asJson(const WorkspaceCheckpoint& checkpoint) {
  JsonObject all{{"id", checkpoint.id.text()},
                 {"label", checkpoint.label},
                 {"kind", rawText(checkpoint.kind)},
                 {"createdAt", checkpoint.createdAt.secondsSinceReference()}};
  setIfKnown(all, "baseRevision", checkpoint.baseRevision);
  all.set("archivePath", checkpoint.archivePath);
  all.set("conversationEntryCount", checkpoint.conversationEntryCount);
  all.set("changedFileCount", checkpoint.changedFileCount);
  return all;
}

void listCheckpoints(CommandContext& context) {
  context.viewTask([&](const StateView& state, const Workspace&, const ChatThread& thread) {
    const auto cells = [&](const WorkspaceCheckpoint& each) -> std::vector<TableCell> {
      return {idCell(each.id),
              {each.label},
              {ago(each.createdAt, state.now), look::dim},
              {fmt::format("{}", each.changedFileCount)},
              {fmt::format("{}", each.conversationEntryCount)},
              {std::string(rawText(each.kind)), look::dim}};
    };
    return context.showList(
        thread.checkpoints,
        TextTable({{"CHECKPOINT"}, {"LABEL", 20}, {"TAKEN"}, {"CHANGES"}, {"ENTRIES"}, {"KIND"}}),
        [](const WorkspaceCheckpoint& each) { return asJson(each); }, cells,
        "No checkpoints. Each prompt takes one in a Git repository that has a commit.\n");
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
    const auto outcome = context.after(done, report);
    context.finish(done && *signal != 0 ? 128 + *signal : outcome);
  };
}

void makeCheckpoint(CommandContext& context) {
  context.openTask([&context](AppModel& model, const ThreadExecutionKey& key) {
    const auto report = [&context, &model, key] {
      const auto& made = model.tree().thread(key)->checkpoints.front();
      context.report(
          asJson(made),
          fmt::format("{}  {} ({})\n", shortID(made.id), onOneLine(made.label),
                      counted(static_cast<std::size_t>(made.changedFileCount), "change")));
    };
    const bool isNamed = context.arguments.words.size() > 1;
    model.safety().createCheckpoint(key,
                                    isNamed ? text::repaired(context.word(1)) : "Manual checkpoint",
                                    whenSafe(context, report));
  });
}

void restoreCheckpoint(CommandContext& context) {
  context.openTask([&context](AppModel& model, const ThreadExecutionKey& key) {
    const auto found =
        findByID(model.tree().thread(key)->checkpoints, context.word(1), "checkpoint of this task",
                 "checkpoint list " + shortID(key.threadID));
    if (!found) return context.misused(found.error());
    const WorkspaceCheckpoint chosen = **found;
    const auto report = [&context, &model, key, chosen] {
      const auto& recovery = model.tree().thread(key)->checkpoints.front();
      context.report(asJson(chosen),
                     fmt::format("{}  restored: {}\n"
                                 "To go back: {} {} {}\n",
                                 shortID(chosen.id), onOneLine(chosen.label),
                                 context.console.asTyped("vantrell checkpoint restore"),
                                 shortID(key.threadID), shortID(recovery.id)));
    };
    context.confirm(
        fmt::format("{} \"{}\", {}\n"
                    "Restore this checkpoint?\n"
                    "vantrell will first save a recovery checkpoint, then restore the files and "
                    "conversation to this point.",
                    shortID(chosen.id), onOneLine(chosen.label),
                    ago(chosen.createdAt, context.main.now())),
        [&context, &model, key, chosen, report] {
          model.safety().restoreCheckpoint(key, chosen, whenSafe(context, report));
        });
  });
}

void isolate(CommandContext& context) {
  context.openTask([&context](AppModel& model, const ThreadExecutionKey& key) {
    const auto report = [&context, &model, key] {
      const auto path = model.tree().executionPath(key).value_or("");
      context.report({{"workspaceID", key.workspaceID.text()},
                      {"threadID", key.threadID.text()},
                      {"path", path}},
                     fmt::format("{}  works in {}\n", shortID(key.threadID), onOneLine(path)));
      if (!context.isJson() && path == model.tree().workspace(key.workspaceID)->path) {
        context.complain("Its worktree is gone, so it works in the project's folder again.");
      }
    };
    model.safety().setTaskWorkspaceMode(key, TaskWorkspaceMode::isolated,
                                        whenSafe(context, report));
  });
}

// ---- their help ---------------------------------------------------------------------------------

constexpr CommandOption reviewOptions[] = {
    {"--line", "N", "the line of the file that the note is about", {}, true},
    {"--decision", "D", "pending (default), accepted or rejected", choicesOf<ReviewDecision>},
    jsonOption,
};
constexpr CommandOption restoreOptions[] = {yesOption, jsonOption};

constexpr Command checkpointCommands[] = {
    {"list", "ID", "the task's checkpoints, newest first", onlyJson, listCheckpoints},
    {"make", "ID [LABEL]", "take one now", onlyJson, makeCheckpoint},
    {"restore", "ID CHECKPOINT",
     "put files and conversation back; CHECKPOINT is any beginning of its ID", restoreOptions,
     restoreCheckpoint},
};

constexpr Command commands[] = {
    {"review", "ID [FILE NOTE]", "list or write notes on what a task has changed", reviewOptions,
     review, "",
     "Example:\n"
     "  vantrell review 3F2A91C0 src/main.cpp --line 40 --decision rejected \"leaks the "
     "socket\""},
    {"checkpoint",
     "",
     "go back to earlier files and an earlier conversation",
     {},
     nullptr,
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
