// Pictures and films, and the files that a task has made: imagine, artifacts.
#include <fmt/format.h>

#include "app/user_state.h"
#include "engine/imagine/imagine_controller.h"
#include "platform/text/text.h"
#include "platform/values/json.h"
#include "project/artifact_discovery.h"
#include "project/git_workspace_service.h"
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
  return line + "\n";
}

/// The library as it is stored: no lock is needed to look at it.
Items storedItems() {
  return ImagineStore::peek(UserFolders{}.orOwn().support);
}

/// Those that the words of the command line mean, each once.
std::expected<Items, UsageError> findItems(const Items& items, const CommandContext& context) {
  Items found;
  for (const auto& word : context.arguments.words) {
    const auto prefix = idPrefix(word);
    Items meant;
    std::ranges::copy_if(items, std::back_inserter(meant), [&](const ImagineItem& item) {
      return prefix && beginsWith(item.id, *prefix);
    });
    if (meant.size() > 1) {
      return usageError(fmt::format("{} pictures and films begin with {}. Give more of the ID.",
                                    meant.size(), onOneLine(word)));
    }
    if (meant.empty()) {
      return usageError(fmt::format(
          "There is no picture or film {}. \"vantrell imagine\" lists them with their IDs.",
          onOneLine(word)));
    }
    if (std::ranges::find(found, meant.front()) == found.end()) found.push_back(meant.front());
  }
  return found;
}

void listItems(CommandContext& context) {
  const Items items = storedItems();
  if (const auto problem = ImagineStore::problem(UserFolders{}.orOwn().support)) {
    return context.fail(*problem +
                        " Its files are next to it. The next picture that is made begins a new "
                        "list and keeps this one.");
  }
  TextTable table({{"ID"},
                   {"KIND"},
                   {.heading = "MADE", .leavesAt = 1},
                   {.heading = "PROMPT", .least = 16},
                   {.heading = "FILE", .least = 12, .leavesAt = 2, .cutsFront = true}});
  for (const auto& item : items) {
    if (context.isJson()) context.console.write(asJson(item));
    table.add({{shortID(item.id), &TerminalStyle::cyan},
               {std::string(rawText(item.kind))},
               {ago(item.createdAt, context.main.now()), &TerminalStyle::dim},
               {item.prompt},
               {withTilde(item.localPath), &TerminalStyle::dim}});
  }
  context.finish(context.showTable(
      table, items.empty(),
      "No pictures or films yet. To make one: vantrell imagine image \"a red fox\"\n"));
}

void tellPaths(CommandContext& context) {
  const auto found = findItems(storedItems(), context);
  if (!found) return context.misused(found.error());
  for (const auto& item : *found) {
    context.console.write(context.isJson() ? asJson(item) : item.localPath + "\n");
  }
  context.finish(exitStatus::completed);
}

void removeItems(CommandContext& context) {
  context.change([&](AppModel& model) -> Outcome {
    const auto found = findItems(model.imagine().imagineItems(), context);
    if (!found) return std::unexpected(found.error());
    for (const auto& item : *found) {
      model.imagine().deleteImagineItem(item.id);
      context.console.write(
          context.isJson() ? asJson(item)
          : files::exists(item.localPath)
              ? fmt::format("{}  forgotten; the file could not be moved to the Trash: {}\n",
                            shortID(item.id), sanitized(item.localPath))
              : fmt::format("{}  moved to the Trash: {}\n", shortID(item.id),
                            onOneLine(item.prompt)));
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
    VantrellOptions options;
    options.customExecutable = [executable](AgentProvider asked) {
      return asked == AgentProvider::grok ? executable : std::nullopt;
    };
    context.open(std::move(options), [&](VantrellApp& app) {
      const std::string prompt(text::trimmed(given));
      // Grok's program and its interpreter may only be found with the login shell's PATH.
      whetherAvailable(context, app, AgentProvider::grok, {}, [&context, kind, prompt](bool) {
        std::vector<std::unique_ptr<Job>> jobs;
        jobs.push_back(std::make_unique<MediaJob>(context, prompt, kind));
        Session::begin(context, std::move(jobs),
                       {.answerKind = context.arguments.value(answerOption.name)},
                       [&context](int status) { context.finish(status); });
      });
    });
  });
}

constexpr CommandOption listOptions[] = {jsonOption};
constexpr CommandOption makeOptions[] = {answerOption, executableOption, jsonOption};
constexpr Command imagineCommands[] = {
    {"list", "", "list the library", listOptions, 0, 0, listItems},
    {"image", "\"PROMPT\"", "make a picture; a prompt of - is read from standard input",
     makeOptions, 1, 1, [](CommandContext& context) { makeItem(context, ImagineKind::image); }},
    {"video", "\"PROMPT\"", "make a film", makeOptions, 1, 1,
     [](CommandContext& context) { makeItem(context, ImagineKind::video); }},
    {"path", "ID...", "print where the files are, one a line", listOptions, 1, Command::anyNumber,
     tellPaths},
    {"remove", "ID...", "move the files to the Trash and forget them", listOptions, 1,
     Command::anyNumber, removeItems},
};

// ---- artifacts ----------------------------------------------------------------------------------

using Source = ProjectArtifact::Source;

std::string_view wordFor(Source source) {
  switch (source) {
    case Source::agent: return "tool call";
    case Source::changed: return "changed";
    case Source::project: return "project";
    case Source::imagine: return "imagine";
  }
  return "";
}

/// Named from the folder, which may be below the root of its repository: git names them from there.
std::vector<GitChangedFile> changedFiles(const std::string& folder) {
  constexpr std::size_t longestPath = 4096;  // bytes
  auto changed = GitWorkspaceService::read(folder).files;
  // "../../", or nothing at the root.
  const auto toRoot =
      GitWorkspaceService::runGit({"rev-parse", "--show-cdup"}, folder, longestPath);
  if (!toRoot || toRoot->status != 0) return changed;
  for (auto& file : changed) file.path.insert(0, text::trimmed(toRoot->text));
  return changed;
}

void listArtifacts(CommandContext& context) {
  context.viewTask([&](const StateView&, const Workspace& workspace, const ChatThread& thread) {
    const std::string root = executionPath(workspace, thread);
    const auto artifacts =
        ArtifactDiscovery::artifacts(root, changedFiles(root), thread.entries, storedItems());
    TextTable table({{"FROM"}, {.heading = "FILE", .least = 20, .cutsFront = true}});
    for (const auto& each : artifacts) {
      if (context.isJson()) {
        context.writeJson(JsonObject{{"path", each.path},
                                     {"displayPath", each.displayPath()},
                                     {"source", rawText(each.source)}});
      }
      table.add({{std::string(wordFor(each.source)), &TerminalStyle::dim}, {each.displayPath()}});
    }
    return context.showTable(table, artifacts.empty(), "This task has made no files.\n");
  });
}

constexpr Command commands[] = {
    {.name = "imagine",
     .summary = "make pictures and films with Grok; list them",
     .options = listOptions,
     .begin = listItems,
     .introduction =
         "Lists the library of pictures and films, newest first, or makes one. ID is a beginning\n"
         "of one's ID.",
     .closing = "Grok Build makes them, which must be installed and signed in. It may ask before "
                "it acts,\n"
                "as far as the mode says so. Ctrl-C stops it; what was copied stays.\n"
                "\n"
                "Exit status: 0 done, 1 failed or nothing was made, 2 wrong usage, 130 stopped.\n"
                "\n"
                "Examples:\n"
                "  vantrell imagine image \"a red fox in the snow\"\n"
                "  xdg-open \"$(vantrell imagine path 3F2A91C0)\"",
     .subcommands = imagineCommands},
    {.name = "artifacts",
     .parameters = "ID",
     .summary = "list the files that a task has made",
     .options = listOptions,
     .minWords = 1,
     .maxWords = 1,
     .begin = listArtifacts,
     .introduction =
         "Lists the existing files that the task's tool calls have named, then those that git\n"
         "sees as changed in its folder, then the pictures and films of \"vantrell imagine\"."},
};

}  // namespace

std::span<const Command> mediaCommands() {
  return commands;
}

}  // namespace vantrell::shell
