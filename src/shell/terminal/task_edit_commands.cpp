#include <fmt/format.h>
#include <unistd.h>

#include "platform/files/files.h"
#include "platform/terminal/terminal.h"
#include "platform/text/text.h"
#include "shell/terminal/commands.h"
#include "shell/terminal/plain_words.h"
#include "shell/terminal/task_change.h"
#include "shell/terminal/task_lookup.h"
#include "shell/terminal/task_words.h"
#include "shell/terminal/terminal_text.h"

namespace vantrell::shell {

namespace {

constexpr std::string_view statuses = "Exit status: 0 done, 1 failed or refused, 2 wrong usage.";

/// Tells of a task that stands as it shall: a sentence, or the object.
void report(ChangeContext& context, const CommandArguments& arguments,
            const ThreadExecutionKey& key, std::string_view done) {
  const auto& thread = threadOf(context.workspaces(), key);
  if (arguments.has("--json")) {
    context.out.write(taskAsJson(workspaceOf(context.workspaces(), key.workspaceID), thread));
  } else {
    context.out.write(fmt::format("{}  {}: {}\n", shortID(key.threadID), done, titleOf(thread)));
  }
}

bool isRefused(const ChangeContext& context) {
  return context.model.executions.mirror().errorMessage.has_value();
}

// ---- new ----------------------------------------------------------------------------------------

/// A task of its own in the project, which is added where it is a folder that is not known yet.
std::expected<ThreadExecutionKey, UsageError> makeTask(ChangeContext& context,
                                                       const std::string& project) {
  auto& operations = context.model.operations;
  const auto named = findProject(context.workspaces(), project);
  const std::string folder = files::standardized(files::expandingTilde(project));
  const auto there = std::ranges::find(context.workspaces(), folder, &Workspace::path);
  // A short name of a folder may also be the beginning of the ID of some project.
  const bool isOnlyID = named &&
                        text::lowercased(workspaceOf(context.workspaces(), *named).name) !=
                            text::lowercased(project) &&
                        there == context.workspaces().end();
  if (named && !(isOnlyID && files::isFolder(folder))) {
    operations.newThread(*named);
  } else if (there != context.workspaces().end()) {
    operations.newThread(there->id);  // other projects have the same name
  } else if (files::isFolder(folder)) {
    operations.addWorkspace(folder);  // with its first task
  } else {
    return std::unexpected(named.error());
  }
  return *context.model.selection.key();
}

int makeNewTask(const CommandArguments& arguments, const Environment&) {
  const bool isNamed = !arguments.words.empty();
  if (isNamed && text::trimmed(arguments.words.front()).empty()) {
    return refuse({"The title is empty. Leave it out, and the first prompt names the task."});
  }
  return changeTasks([&](ChangeContext& context) -> std::expected<int, UsageError> {
    const auto key = makeTask(context, arguments.value("--project").value_or("."));
    if (!key) return std::unexpected(key.error());
    if (isNamed) {
      context.model.operations.renameThread(key->threadID, key->workspaceID,
                                            text::repaired(arguments.words.front()));
    }
    const auto& project = workspaceOf(context.workspaces(), key->workspaceID);
    report(context, arguments, *key, fmt::format("new in {}", onOneLine(project.name)));
    if (!arguments.has("--json") && terminal::isTerminal(STDOUT_FILENO)) {
      context.out.write(asTyped(
          fmt::format("To begin it: vantrell run --task {} \"...\"\n", shortID(key->threadID))));
    }
    return exitStatus::completed;
  });
}

constexpr CommandOption newOptions[] = {
    {"--project", "PROJECT", "a project's name, folder or ID (default: the current folder)"},
    changedJsonOption,
};

// ---- rename, move -------------------------------------------------------------------------------

int rename(const CommandArguments& arguments, const Environment&) {
  if (text::trimmed(arguments.words[1]).empty()) return refuse({"The new title is empty."});
  return changeTasks([&](ChangeContext& context) -> std::expected<int, UsageError> {
    const auto key = findTask(context.workspaces(), arguments.words[0]);
    if (!key) return std::unexpected(key.error());
    context.model.operations.renameThread(key->threadID, key->workspaceID,
                                          text::repaired(arguments.words[1]));
    report(context, arguments, *key, "renamed");
    return exitStatus::completed;
  });
}

int move(const CommandArguments& arguments, const Environment&) {
  return changeTasks([&](ChangeContext& context) -> std::expected<int, UsageError> {
    const auto key = findTask(context.workspaces(), arguments.words[0]);
    if (!key) return std::unexpected(key.error());
    const auto project = findProject(context.workspaces(), arguments.words[1]);
    if (!project) return std::unexpected(project.error());
    const std::string name = onOneLine(workspaceOf(context.workspaces(), *project).name);
    const bool isThere = key->workspaceID == *project;
    context.model.operations.moveThread(key->threadID, key->workspaceID, *project);
    if (isRefused(context)) return exitStatus::failed;
    report(context, arguments, {*project, key->threadID},
           fmt::format("{} {}", isThere ? "is in" : "moved to", name));
    return exitStatus::completed;
  });
}

constexpr CommandOption jsonOnly[] = {changedJsonOption};

// ---- pin, archive, delete -----------------------------------------------------------------------

int pin(const CommandArguments& arguments, const Environment&) {
  const bool pinned = !arguments.has("--off");
  return changeTasks([&](ChangeContext& context) -> std::expected<int, UsageError> {
    const auto keys = findTasks(context.workspaces(), arguments.words);
    if (!keys) return std::unexpected(keys.error());
    for (const auto& key : *keys) {
      if (threadOf(context.workspaces(), key).isPinned != pinned) {
        context.model.operations.toggleThreadPin(key.threadID, key.workspaceID);
      }
      report(context, arguments, key, pinned ? "pinned" : "not pinned");
    }
    return exitStatus::completed;
  });
}

int archive(const CommandArguments& arguments, const Environment&) {
  const bool archived = !arguments.has("--off");
  return changeTasks([&](ChangeContext& context) -> std::expected<int, UsageError> {
    const auto keys = findTasks(context.workspaces(), arguments.words);
    if (!keys) return std::unexpected(keys.error());
    for (const auto& key : *keys) {
      context.model.operations.setThreadArchived(key.threadID, key.workspaceID, archived);
      if (isRefused(context)) return exitStatus::failed;
      report(context, arguments, key, archived ? "archived" : "not archived");
    }
    return exitStatus::completed;
  });
}

std::string questionBefore(const ChangeContext& context,
                           const std::vector<ThreadExecutionKey>& keys) {
  std::string question = keys.size() == 1 ? "Delete " : "Delete these tasks?\n";
  for (const auto& key : keys) {
    const auto& thread = threadOf(context.workspaces(), key);
    const auto& project = workspaceOf(context.workspaces(), key.workspaceID);
    const std::size_t count = thread.entries.size();
    question += fmt::format("{}\"{}\" in {} ({} {}){}", keys.size() == 1 ? "" : "  ",
                            titleOf(thread), onOneLine(project.name), count,
                            count == 1 ? "entry" : "entries", keys.size() == 1 ? "? " : "\n");
  }
  return question + "This cannot be taken back.";
}

int remove(const CommandArguments& arguments, const Environment&) {
  return changeTasks([&](ChangeContext& context) -> std::expected<int, UsageError> {
    const auto keys = findTasks(context.workspaces(), arguments.words);
    if (!keys) return std::unexpected(keys.error());
    const auto mayDo = confirmed(arguments, questionBefore(context, *keys));
    if (!mayDo) return std::unexpected(mayDo.error());
    if (!*mayDo) return exitStatus::stopped;
    for (const auto& key : *keys) {
      report(context, arguments, key, "deleted");
      context.model.operations.deleteThread(key.threadID, key.workspaceID);
    }
    return exitStatus::completed;
  });
}

constexpr CommandOption switchOptions[] = {offOption, changedJsonOption};
constexpr CommandOption deleteOptions[] = {yesOption, changedJsonOption};

}  // namespace

const Command newCommand{
    .name = "new",
    .parameters = "[TITLE]",
    .summary = "make a new task, to be run later",
    .options = newOptions,
    .mostWords = 1,
    .introduction =
        "Makes a new task and selects it. Without a title, its first prompt names it. A folder\n"
        "that is no project yet becomes one.",
    .closing = statuses,
    .run = makeNewTask,
};

const Command renameCommand{
    .name = "rename",
    .parameters = "ID TITLE",
    .summary = "give a task another title",
    .options = jsonOnly,
    .fewestWords = 2,
    .mostWords = 2,
    .introduction = "Gives a task another title. A title with spaces stands in quotes.",
    .closing = statuses,
    .run = rename,
};

const Command moveCommand{
    .name = "move",
    .parameters = "ID PROJECT",
    .summary = "move a task to another project",
    .options = jsonOnly,
    .fewestWords = 2,
    .mostWords = 2,
    .introduction =
        "Moves a task to another project, named by its name, folder or ID. Sessions and\n"
        "checkpoints are bound to the old folder and do not come along: the next run begins a\n"
        "new session.",
    .closing = statuses,
    .run = move,
};

const Command pinCommand{
    .name = "pin",
    .parameters = "ID...",
    .summary = "list a task before the others",
    .options = switchOptions,
    .fewestWords = 1,
    .mostWords = std::string_view::npos,
    .introduction =
        "Lists tasks before all others.\n"
        "ID is any beginning of a task's ID that no other task has. Several may be given.",
    .closing = statuses,
    .run = pin,
};

const Command archiveCommand{
    .name = "archive",
    .parameters = "ID...",
    .summary = "put a task out of sight, or take it back (--off)",
    .options = switchOptions,
    .fewestWords = 1,
    .mostWords = std::string_view::npos,
    .introduction =
        "Puts tasks out of sight, or takes them back with --off.\n"
        "ID is any beginning of a task's ID that no other task has. Several may be given.",
    .closing =
        "An archived task keeps everything; \"vantrell tasks --archived\" lists it. It is no\n"
        "longer pinned.\n"
        "\n"
        "Exit status: 0 done, 1 failed or refused, 2 wrong usage.",
    .run = archive,
};

const Command deleteCommand{
    .name = "delete",
    .parameters = "ID...",
    .summary = "delete a task for good",
    .options = deleteOptions,
    .fewestWords = 1,
    .mostWords = std::string_view::npos,
    .introduction =
        "Deletes tasks with all that was said in them.\n"
        "ID is any beginning of a task's ID that no other task has. Several may be given.",
    .closing =
        "At a terminal it asks first; elsewhere it takes --yes. Files of the project stay.\n"
        "\n"
        "Exit status: 0 done, 1 failed, 2 wrong usage, 130 not wanted after all.",
    .run = remove,
};

}  // namespace vantrell::shell
