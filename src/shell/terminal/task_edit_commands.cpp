// The commands that change tasks: new, fork, rename, move, pin, archive, delete.
#include <fmt/format.h>

#include "engine/core/selection.h"
#include "engine/core/workspace_tree.h"
#include "engine/tasks/task_branches.h"
#include "engine/tasks/workspace_operations.h"
#include "platform/files/files.h"
#include "platform/text/text.h"
#include "shell/terminal/command_groups.h"
#include "shell/terminal/run_plan.h"
#include "shell/terminal/task_lookup.h"
#include "shell/terminal/task_words.h"
#include "shell/terminal/terminal_text.h"

namespace vantrell::shell {

namespace {

constexpr std::string_view statuses = "Exit status: 0 done, 1 failed or refused, 2 wrong usage.";
constexpr CommandOption offOption{"--off", "", "take it back"};
constexpr CommandOption changedJsonOption{"--json", "",
                                          "for scripts: what was changed, one JSON object a line"};

/// Tells about a task that is changed: a sentence, or the object.
void report(CommandContext& context, const std::vector<Workspace>& workspaces,
            const ThreadExecutionKey& key, std::string_view done) {
  const auto& thread = threadOf(workspaces, key);
  context.console.write(
      context.isJson() ? taskAsJson(workspaceOf(workspaces, key.workspaceID), thread)
                       : fmt::format("{}  {}: {}\n", shortID(key.threadID), done, titleOf(thread)));
}

/// What to type next, for people only.
void hint(CommandContext& context, std::string_view text) {
  if (!context.isJson() && context.console.isOutputTerminal()) context.console.say(text);
}

// ---- new, fork ----------------------------------------------------------------------------------

/// A task of its own in the project, which is added if it is a folder that is not known yet.
std::expected<ThreadExecutionKey, UsageError> makeTask(const CommandContext& context,
                                                       AppModel& model,
                                                       const std::string& project) {
  const auto& workspaces = model.tree().workspaces();
  const auto named = findProject(workspaces, project, context.caller.folder);
  const std::string folder = context.absolute(project);
  const auto there = std::ranges::find(workspaces, folder, &Workspace::path);
  // A short name of a folder may also be the beginning of the ID of some project.
  const bool isOnlyID =
      named &&
      text::lowercased(workspaceOf(workspaces, *named).name) != text::lowercased(project) &&
      there == workspaces.end();
  Result<> made;
  if (named && !(isOnlyID && files::isFolder(folder))) {
    made = model.operations().newThread(*named);
  } else if (there != workspaces.end()) {
    made = model.operations().newThread(there->id);  // other projects have the same name
  } else if (files::isFolder(folder)) {
    made = model.operations().addWorkspace(folder);  // with its first task
  } else {
    return std::unexpected(named.error());
  }
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
    const auto key =
        makeTask(context, model, context.arguments.value(projectOption.name).value_or("."));
    if (!key) return std::unexpected(key.error());
    if (isNamed) {
      const auto named = model.operations().renameThread(key->threadID, key->workspaceID,
                                                         text::repaired(context.word(0)));
      if (!named) return context.refused(named.error());
    }
    const auto& workspaces = model.tree().workspaces();
    const auto& project = workspaceOf(workspaces, key->workspaceID);
    report(context, workspaces, *key, fmt::format("new in {}", onOneLine(project.name)));
    hint(context,
         fmt::format("To begin it: vantrell run --task {} \"...\"\n", shortID(key->threadID)));
    return exitStatus::completed;
  });
}

void fork(CommandContext& context) {
  context.change([&](AppModel& model) -> Outcome {
    const auto key = findTask(model.tree().workspaces(), context.word(0));
    if (!key) return std::unexpected(key.error());
    std::optional<std::string> through;
    if (const auto named = context.arguments.value("--through")) {
      const ChatThread& thread = *model.tree().thread(*key);
      const auto place = findEntry(thread, *named);
      if (!place) return std::unexpected(place.error());
      through = thread.entries[*place].id;
    }
    const auto made = model.branches().forkThread(*key, through);
    if (!made) return context.refused(made.error());
    static_cast<void>(model.operations().selectThread(made->threadID, made->workspaceID));
    report(context, model.tree().workspaces(), *made,
           fmt::format("forked from {}", shortID(key->threadID)));
    hint(context,
         fmt::format("To go on: vantrell run --task {} \"...\"\n", shortID(made->threadID)));
    return exitStatus::completed;
  });
}

// ---- rename, move -------------------------------------------------------------------------------

void rename(CommandContext& context) {
  if (text::trimmed(context.word(1)).empty()) {
    return context.misused("The new title is empty.");
  }
  context.change([&](AppModel& model) -> Outcome {
    const auto key = findTask(model.tree().workspaces(), context.word(0));
    if (!key) return std::unexpected(key.error());
    const auto done = model.operations().renameThread(key->threadID, key->workspaceID,
                                                      text::repaired(context.word(1)));
    if (!done) return context.refused(done.error());
    report(context, model.tree().workspaces(), *key, "renamed");
    return exitStatus::completed;
  });
}

void move(CommandContext& context) {
  context.change([&](AppModel& model) -> Outcome {
    const auto& workspaces = model.tree().workspaces();
    const auto key = findTask(workspaces, context.word(0));
    if (!key) return std::unexpected(key.error());
    const auto project = findProject(workspaces, context.word(1), context.caller.folder);
    if (!project) return std::unexpected(project.error());
    const std::string name = onOneLine(workspaceOf(workspaces, *project).name);
    const bool isThere = key->workspaceID == *project;
    const auto done = model.operations().moveThread(key->threadID, key->workspaceID, *project);
    if (!done) return context.refused(done.error());
    report(context, workspaces, {*project, key->threadID},
           fmt::format("{} {}", isThere ? "is in" : "moved to", name));
    return exitStatus::completed;
  });
}

// ---- pin, archive, delete -----------------------------------------------------------------------

void pin(CommandContext& context) {
  const bool pinned = !context.arguments.has(offOption.name);
  context.change([&](AppModel& model) -> Outcome {
    const auto keys = findTasks(model.tree().workspaces(), context.arguments.words);
    if (!keys) return std::unexpected(keys.error());
    for (const auto& key : *keys) {
      if (model.tree().thread(key)->isPinned != pinned) {
        const auto done = model.operations().toggleThreadPin(key.threadID, key.workspaceID);
        if (!done) return context.refused(done.error());
      }
      report(context, model.tree().workspaces(), key, pinned ? "pinned" : "not pinned");
    }
    return exitStatus::completed;
  });
}

void archive(CommandContext& context) {
  const bool archived = !context.arguments.has(offOption.name);
  context.change([&](AppModel& model) -> Outcome {
    const auto keys = findTasks(model.tree().workspaces(), context.arguments.words);
    if (!keys) return std::unexpected(keys.error());
    for (const auto& key : *keys) {
      const auto done =
          model.operations().setThreadArchived(key.threadID, key.workspaceID, archived);
      if (!done) return context.refused(done.error());
      report(context, model.tree().workspaces(), key, archived ? "archived" : "not archived");
    }
    return exitStatus::completed;
  });
}

std::string questionBefore(const std::vector<Workspace>& workspaces,
                           const std::vector<ThreadExecutionKey>& keys) {
  std::string question = keys.size() == 1 ? "Delete " : "Delete these tasks?\n";
  for (const auto& key : keys) {
    const auto& thread = threadOf(workspaces, key);
    const auto& project = workspaceOf(workspaces, key.workspaceID);
    const std::size_t count = thread.entries.size();
    question += fmt::format("{}\"{}\" in {} ({} {}){}", keys.size() == 1 ? "" : "  ",
                            titleOf(thread), onOneLine(project.name), count,
                            count == 1 ? "entry" : "entries", keys.size() == 1 ? "? " : "\n");
  }
  return question + "This cannot be undone.";
}

void remove(CommandContext& context) {
  context.open({}, [&context](VantrellApp& app) {
    const auto keys = findTasks(app.model().tree().workspaces(), context.arguments.words);
    if (!keys) return context.misused(keys.error());
    context.confirm(questionBefore(app.model().tree().workspaces(), *keys),
                    [&context, &model = app.model(), keys = *keys] {
                      for (const auto& key : keys) {
                        report(context, model.tree().workspaces(), key, "deleted");
                        const auto worktree = model.tree().thread(key)->isolatedWorkspacePath;
                        const auto done =
                            model.operations().deleteThread(key.threadID, key.workspaceID);
                        if (!done) return context.finish(context.refused(done.error()));
                        if (worktree && files::isFolder(*worktree)) {
                          context.complain(fmt::format(
                              "Its worktree stays: {}. To remove it: git worktree remove FOLDER",
                              onOneLine(*worktree)));
                        }
                      }
                      context.finish(exitStatus::completed);
                    });
  });
}

constexpr CommandOption newOptions[] = {projectOption, changedJsonOption};
constexpr CommandOption forkOptions[] = {
    {"--through", "ENTRY", "only up to this entry and with it, as show --entries names it"},
    changedJsonOption,
};
constexpr CommandOption jsonOnly[] = {changedJsonOption};
constexpr CommandOption switchOptions[] = {offOption, changedJsonOption};
constexpr CommandOption deleteOptions[] = {yesOption, changedJsonOption};

constexpr Command commands[] = {
    {.name = "new",
     .parameters = "[TITLE]",
     .summary = "make a new task, to be run later",
     .options = newOptions,
     .maxWords = 1,
     .begin = makeNewTask,
     .introduction =
         "Makes a new task and selects it. Without a title, its first prompt names it. A folder\n"
         "that is not a project yet becomes one.",
     .closing = statuses},
    {.name = "fork",
     .parameters = "ID",
     .summary = "copy a task, to go on with it in another way",
     .options = forkOptions,
     .minWords = 1,
     .maxWords = 1,
     .begin = fork,
     .introduction =
         "Makes a task with what was said in another one, and its choices. It works in the\n"
         "project's folder and begins sessions of its own; the other one stays as it is. ID is\n"
         "any beginning of a task's ID.",
     .closing = "To say a prompt in other words: vantrell branch ID --from ENTRY \"prompt\""},
    {.name = "rename",
     .parameters = "ID TITLE",
     .summary = "give a task another title",
     .options = jsonOnly,
     .minWords = 2,
     .maxWords = 2,
     .begin = rename,
     .introduction = "Gives a task another title. Put a title with spaces in quotes.",
     .closing = statuses},
    {.name = "move",
     .parameters = "ID PROJECT",
     .summary = "move a task to another project",
     .options = jsonOnly,
     .minWords = 2,
     .maxWords = 2,
     .begin = move,
     .introduction =
         "Moves a task to another project, named by its name, folder or ID. Sessions and\n"
         "checkpoints are bound to the old folder and do not come along: the next run begins a\n"
         "new session.",
     .closing = statuses},
    {.name = "pin",
     .parameters = "ID...",
     .summary = "list a task before the others",
     .options = switchOptions,
     .minWords = 1,
     .maxWords = Command::anyNumber,
     .begin = pin,
     .introduction =
         "Lists tasks before all others. ID is any beginning of a task's ID that no other task\n"
         "has. Several may be given.",
     .closing = statuses},
    {.name = "archive",
     .parameters = "ID...",
     .summary = "hide a task from the lists, or show it again (--off)",
     .options = switchOptions,
     .minWords = 1,
     .maxWords = Command::anyNumber,
     .begin = archive,
     .introduction =
         "Hides tasks from the lists, or shows them again with --off. ID is any beginning of a\n"
         "task's ID that no other task has. Several may be given.",
     .closing =
         "An archived task keeps everything; \"vantrell tasks --archived\" lists it. It is no\n"
         "longer pinned.\n"
         "\n"
         "Exit status: 0 done, 1 failed or refused, 2 wrong usage."},
    {.name = "delete",
     .parameters = "ID...",
     .summary = "delete a task for good",
     .options = deleteOptions,
     .minWords = 1,
     .maxWords = Command::anyNumber,
     .begin = remove,
     .introduction =
         "Deletes tasks with all that was said in them. ID is any beginning of a task's ID that\n"
         "no other task has. Several may be given.",
     .closing =
         "At a terminal it asks first; elsewhere it takes --yes. Files of the project stay.\n"
         "\n"
         "Exit status: 0 done, 1 failed, 2 wrong usage, 130 not confirmed."},
};

}  // namespace

std::span<const Command> taskEditCommands() {
  return commands;
}

}  // namespace vantrell::shell
