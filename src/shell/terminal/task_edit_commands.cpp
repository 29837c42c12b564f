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

void fork(CommandContext& context) {
  context.changeTask([&](AppModel& model, const ThreadExecutionKey& key) -> Outcome {
    std::optional<std::string> through;
    if (const auto named = context.arguments.value("--through")) {
      const ChatThread& thread = *model.tree().thread(key);
      const auto place = findEntry(thread, *named);
      if (!place) return std::unexpected(place.error());
      through = thread.entries[*place].id;
    }
    const auto made = model.branches().forkThread(key, through);
    if (!made) return context.refused(made.error());
    static_cast<void>(model.operations().selectThread(made->threadID, made->workspaceID));
    report(context, *made, fmt::format("forked from {}", shortID(key.threadID)));
    return exitStatus::completed;
  });
}

void rename(CommandContext& context) {
  if (text::trimmed(context.word(1)).empty()) return context.misused("The new title is empty.");
  context.changeTask([&](AppModel& model, const ThreadExecutionKey& key) {
    return context.after(model.operations().renameThread(key.threadID, key.workspaceID,
                                                         text::repaired(context.word(1))),
                         [&] { report(context, key, "renamed"); });
  });
}

void move(CommandContext& context) {
  context.changeTask([&](AppModel& model, const ThreadExecutionKey& key) -> Outcome {
    const auto project =
        findProject(model.tree().workspaces(), context.word(1), context.caller.folder);
    if (!project) return std::unexpected(project.error());
    return context.after(
        model.operations().moveThread(key.threadID, key.workspaceID, *project), [&] {
          report(context, {*project, key.threadID},
                 fmt::format("is in {}", onOneLine(model.tree().workspace(*project)->name)));
        });
  });
}

/// Does the same to each task that is named, and reports it.
void changeEach(CommandContext& context, std::string_view done,
                const std::function<Result<>(AppModel&, const ThreadExecutionKey&)>& operation) {
  context.change([&](AppModel& model) -> Outcome {
    const auto keys = findTasks(model.tree().workspaces(), context.arguments.words);
    if (!keys) return std::unexpected(keys.error());
    for (const auto& key : *keys) {
      if (const auto result = operation(model, key); !result)
        return context.refused(result.error());
      report(context, key, done);
    }
    return exitStatus::completed;
  });
}

constexpr CommandOption offOption{"--off", "", "take it back"};

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

constexpr CommandOption newOptions[] = {projectOption, jsonOption};
constexpr CommandOption forkOptions[] = {
    {"--through", "ENTRY", "only up to this entry and with it, as show --entries names it"},
    jsonOption,
};
constexpr CommandOption switchOptions[] = {offOption, jsonOption};
constexpr CommandOption deleteOptions[] = {yesOption, jsonOption};

constexpr Command commands[] = {
    {"new", "[TITLE]", "make a new task, to be run later", newOptions, makeNewTask,
     "Makes a new task and selects it. Without a title, its first prompt names it. A folder\n"
     "that is not a project yet becomes one."},
    {"fork", "ID", "copy a task, to go on with it in another way", forkOptions, fork,
     "Makes a task with what was said in another one, and its choices. It works in the\n"
     "project's folder and begins sessions of its own; the other one stays as it is."},
    {"rename", "ID TITLE", "give a task another title", onlyJson, rename},
    {"move", "ID PROJECT", "move a task to another project", onlyJson, move,
     "Moves a task to another project. Sessions and checkpoints are bound to the old folder\n"
     "and do not come along: the next run begins a new session."},
    {"pin", "ID...", "list tasks before the others", switchOptions, pin},
    {"archive", "ID...", "hide tasks from the lists, or show them again (--off)", switchOptions,
     archive, "", "An archived task keeps everything; it is no longer pinned."},
    {"delete", "ID...", "delete tasks for good, with all that was said in them", deleteOptions,
     remove, "",
     "At a terminal it asks first; elsewhere it takes --yes. Files of the project stay."},
};

}  // namespace

std::span<const Command> taskEditCommands() {
  return commands;
}

}  // namespace vantrell::shell
