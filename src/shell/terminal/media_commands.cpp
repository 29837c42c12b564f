// Pictures and films, and the files that a task has made: imagine, artifacts.
#include <fmt/format.h>

#include "app/user_state.h"
#include "engine/imagine/imagine_controller.h"
#include "platform/files/files.h"
#include "platform/text/text.h"
#include "project/artifact_discovery.h"
#include "records/stores/imagine_store.h"
#include "shell/terminal/command_groups.h"
#include "shell/terminal/media_job.h"
#include "shell/terminal/run_plan.h"
#include "shell/terminal/task_lookup.h"
#include "shell/terminal/task_words.h"
#include "shell/terminal/terminal_text.h"

namespace vantrell::shell {

namespace {

// ---- imagine ------------------------------------------------------------------------------------

using Items = std::vector<ImagineItem>;

std::string asJson(const ImagineItem& item) {
  std::string line;
  JsonWriter writer(line);
  writeJson(writer, item);
  return line;
}

/// The library as it is stored: no lock is needed to look at it.
Items storedItems() {
  return ImagineStore::peek(UserFolders{}.orOwn().support);
}

/// Those that the words of the command line mean, each once.
std::expected<Items, UsageError> findItems(const Items& items, const CommandContext& context) {
  Items found;
  for (const auto& word : context.arguments.words) {
    const auto item = findByID(items, word, "picture or film", "imagine");
    if (!item) return std::unexpected(item.error());
    if (std::ranges::find(found, **item) == found.end()) found.push_back(**item);
  }
  return found;
}

void listItems(CommandContext& context) {
  if (const auto problem = ImagineStore::problem(UserFolders{}.orOwn().support)) {
    return context.fail(*problem +
                        " Its files are next to it. The next picture that is made begins a new "
                        "list and keeps this one.");
  }
  const auto cells = [&](const ImagineItem& item) -> std::vector<TableCell> {
    return {idCell(item.id),
            {std::string(rawText(item.kind))},
            {item.prompt},
            {withTilde(item.localPath), look::dim},
            {ago(item.createdAt, context.main.now()), look::dim}};
  };
  context.finish(context.showList(
      storedItems(), TextTable({{"ITEM"}, {"KIND"}, {"PROMPT", 16}, {"FILE", 12, true}, {"MADE"}}),
      asJson, cells,
      "No pictures or films yet. To make one: vantrell imagine image \"a red fox\"\n"));
}

void tellPaths(CommandContext& context) {
  const auto found = findItems(storedItems(), context);
  if (!found) return context.misused(found.error());
  for (const auto& item : *found) {
    context.console.write((context.isJson() ? asJson(item) : item.localPath) + "\n");
  }
  context.finish(exitStatus::completed);
}

void removeItems(CommandContext& context) {
  context.change([&](AppModel& model) -> Outcome {
    const auto found = findItems(model.imagine().imagineItems(), context);
    if (!found) return std::unexpected(found.error());
    for (const auto& item : *found) {
      model.imagine().deleteImagineItem(item.id);
      const bool isLeft = files::exists(item.localPath);
      context.console.write(
          context.isJson()
              ? asJson(item) + "\n"
              : fmt::format("{}  {}: {}\n", shortID(item.id),
                            isLeft ? "forgotten; the file could not be moved to the Trash"
                                   : "moved to the Trash",
                            onOneLine(isLeft ? item.localPath : item.prompt)));
    }
    return exitStatus::completed;
  });
}

void makeItem(CommandContext& context, ImagineKind kind) {
  std::optional<std::string> executable;
  if (const auto named = context.arguments.value(executableOption.name)) {
    auto found = findProgram(context, *named);
    if (!found) return context.misused(found.error());
    executable = *std::move(found);
  }
  withPrompt(context, context.word(0), [&context, kind, executable](const std::string& given) {
    context.open({}, [&](VantrellApp& app) {
      auto& imagine = app.model().imagine();
      if (imagine.imagineState().isBusy() || imagine.hasUnfinishedWork()) {
        return context.fail(
            "Another command makes something at the moment. Try again when it is done.");
      }
      imagine.chooseExecutable(executable);
      const std::string prompt(text::trimmed(given));
      const RunChoices choices{.provider = AgentProvider::grok, .executable = executable};
      // Grok's program and its interpreter may only be found with the login shell's PATH.
      whetherAvailable(context, app, AgentProvider::grok, {}, choices,
                       [&context, kind, prompt](bool) {
                         std::vector<std::unique_ptr<Job>> jobs;
                         jobs.push_back(std::make_unique<MediaJob>(context, prompt, kind));
                         Session::begin(context, std::move(jobs),
                                        {.answerKind = context.arguments.value(answerOption.name)},
                                        [&context](int status) { context.finish(status); });
                       });
    });
  });
}

constexpr CommandOption makeOptions[] = {answerOption, executableOption, jsonOption};
constexpr Command imagineCommands[] = {
    {"list", "", "list the library", onlyJson, listItems},
    {"image", "\"PROMPT\"", "make a picture; a prompt of - is read from standard input",
     makeOptions, [](CommandContext& context) { makeItem(context, ImagineKind::image); }},
    {"video", "\"PROMPT\"", "make a film", makeOptions,
     [](CommandContext& context) { makeItem(context, ImagineKind::video); }},
    {"path", "ITEM...", "print where the files are, one a line", onlyJson, tellPaths},
    {"remove", "ITEM...", "move the files to the Trash and forget them", onlyJson, removeItems},
};

// ---- artifacts ----------------------------------------------------------------------------------

std::string_view wordFor(ProjectArtifact::Source source) {
  return source == ProjectArtifact::Source::agent ? "tool call" : rawText(source);
}

void listArtifacts(CommandContext& context) {
  const auto stored = context.stored();
  if (!stored) return context.fail(stored.error());
  const auto key = findTask(stored->workspaces, context.word(0));
  if (!key) return context.misused(key.error());
  const ChatThread& thread = threadOf(stored->workspaces, *key);
  const auto root = executionPath(workspaceOf(stored->workspaces, key->workspaceID), thread);
  const auto found = std::make_shared<std::vector<ProjectArtifact>>();
  const auto lookForThem = [root, entries = thread.entries, found] {
    *found = ArtifactDiscovery::artifactsIn(root, entries, storedItems());
  };
  if (!stored->problems->empty()) context.complain(*stored->problems);
  context.inBackground(lookForThem, [&context, found] {
    const auto json = [](const ProjectArtifact& each) {
      return JsonObject{{"path", each.path},
                        {"displayPath", each.displayPath()},
                        {"source", rawText(each.source)}};
    };
    const auto cells = [](const ProjectArtifact& each) -> std::vector<TableCell> {
      return {{std::string(wordFor(each.source)), look::dim}, {each.displayPath()}};
    };
    context.finish(context.showList(*found, TextTable({{"FROM"}, {"FILE", 20, true}}), json, cells,
                                    "This task has made no files.\n"));
  });
}

constexpr Command commands[] = {
    {"imagine", "", "make pictures and films with Grok; list them", onlyJson, listItems,
     "Lists the library of pictures and films, newest first, or makes one. ITEM is a\n"
     "beginning of the ID of one.",
     "Grok Build makes them, which must be installed and signed in. It may ask before "
     "it acts,\n"
     "as far as the mode says so. Ctrl-C stops it; what was copied stays.",
     imagineCommands},
    {"artifacts", "ID", "list the files that a task has made", onlyJson, listArtifacts,
     "Lists the existing files that the task's tool calls have named, then those that git\n"
     "sees as changed in its folder, then the pictures and films of \"vantrell imagine\"."},
};

}  // namespace

std::span<const Command> mediaCommands() {
  return commands;
}

}  // namespace vantrell::shell
