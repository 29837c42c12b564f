#include <fmt/format.h>
#include <unistd.h>

#include "platform/text/text.h"
#include "platform/values/json.h"
#include "shell/terminal/commands.h"
#include "shell/terminal/json_member.h"
#include "shell/terminal/safety_work.h"
#include "shell/terminal/state_view.h"
#include "shell/terminal/task_lookup.h"
#include "shell/terminal/task_words.h"
#include "shell/terminal/terminal_text.h"

namespace vantrell::shell {

namespace {

constexpr CommandOption options[] = {
    yesOption,
    {"--json", "", "for scripts: the checkpoints, one JSON object a line"},
};

std::string asJson(const WorkspaceCheckpoint& checkpoint) {
  std::string line;
  JsonWriter writer(line);
  writer.beginObject();
  member(writer, "id", checkpoint.id.text());
  member(writer, "label", checkpoint.label);
  member(writer, "kind", rawText(checkpoint.kind));
  member(writer, "createdAt", checkpoint.createdAt.secondsSinceReference());
  if (checkpoint.baseRevision) member(writer, "baseRevision", *checkpoint.baseRevision);
  member(writer, "archivePath", checkpoint.archivePath);
  member(writer, "conversationEntryCount", checkpoint.conversationEntryCount);
  member(writer, "changedFileCount", checkpoint.changedFileCount);
  writer.endObject();
  return line + "\n";
}

std::string tableOf(const ChatThread& thread, Date now, const TerminalStyle& style) {
  TextTable table({{"CHECKPOINT"},
                   {.heading = "LABEL", .least = 20},
                   {.heading = "KIND", .leavesAt = 3},
                   {.heading = "CHANGES", .leavesAt = 2},
                   {.heading = "ENTRIES", .leavesAt = 1},
                   {"TAKEN"}});
  for (const auto& each : thread.checkpoints) {
    table.add({{shortID(each.id), &TerminalStyle::cyan},
               {each.label},
               {std::string(rawText(each.kind)), &TerminalStyle::dim},
               {fmt::format("{}", each.changedFileCount)},
               {fmt::format("{}", each.conversationEntryCount)},
               {ago(each.createdAt, now), &TerminalStyle::dim}});
  }
  return table.text(style, columnsForTables(STDOUT_FILENO));
}

int list(const CommandArguments& arguments, const Environment& environment) {
  return withStateView([&](const StateView& state) -> std::expected<int, UsageError> {
    const auto key = findTask(state.workspaces, arguments.words[1]);
    if (!key) return std::unexpected(key.error());
    const ChatThread& thread = threadOf(state.workspaces, *key);
    StandardOutput out;
    if (arguments.has("--json")) {
      for (const auto& each : thread.checkpoints) out.write(asJson(each));
    } else if (thread.checkpoints.empty()) {
      out.write("No checkpoints. Each prompt takes one in a Git repository.\n");
    } else {
      out.write(tableOf(thread, state.now, TerminalStyle::of(STDOUT_FILENO, environment)));
    }
    return out.finish(exitStatus::completed);
  });
}

int make(const CommandArguments& arguments) {
  const bool isNamed = arguments.words.size() > 2;
  return withSafetyWork(
      arguments.words[1],
      [&](ChangeContext& context, const ChatThread&) -> std::expected<bool, UsageError> {
        context.model.safety->createCheckpoint(isNamed ? text::repaired(arguments.words[2])
                                                       : std::string("Manual checkpoint"));
        return true;
      },
      [&](ChangeContext& context, const ThreadExecutionKey& key) {
        const auto& made = threadOf(context.workspaces(), key).checkpoints.front();
        context.out.write(arguments.has("--json")
                              ? asJson(made)
                              : fmt::format("{}  {} ({} {})\n", shortID(made.id),
                                            onOneLine(made.label), made.changedFileCount,
                                            made.changedFileCount == 1 ? "change" : "changes"));
      });
}

std::expected<WorkspaceCheckpoint, UsageError> findCheckpoint(const ChatThread& thread,
                                                              std::string_view beginning) {
  const auto plain = [](std::string_view id) {
    std::string text = text::lowercased(id);
    std::erase(text, '-');
    return text;
  };
  std::vector<const WorkspaceCheckpoint*> found;
  for (const auto& each : thread.checkpoints) {
    if (plain(each.id.text()).starts_with(plain(beginning))) found.push_back(&each);
  }
  if (found.size() == 1) return *found.front();
  return usageError(fmt::format(
      "{} checkpoint of this task begins with \"{}\". To see them: vantrell checkpoint list {}",
      found.empty() ? "No" : "More than one", onOneLine(beginning), shortID(thread.id)));
}

int restore(const CommandArguments& arguments) {
  std::optional<WorkspaceCheckpoint> chosen;
  return withSafetyWork(
      arguments.words[1],
      [&](ChangeContext& context, const ChatThread& thread) -> std::expected<bool, UsageError> {
        auto found = findCheckpoint(thread, arguments.words[2]);
        if (!found) return std::unexpected(found.error());
        const auto mayDo = confirmed(
            arguments, fmt::format("{} \"{}\", {}\n"
                                   "Restore this checkpoint?\n"
                                   "vantrell will first save a recovery checkpoint, then restore "
                                   "the files and conversation to this point.",
                                   shortID(found->id), onOneLine(found->label),
                                   ago(found->createdAt, context.model.main.now())));
        if (!mayDo) return std::unexpected(mayDo.error());
        if (!*mayDo) return false;
        chosen = *found;
        context.model.safety->restoreCheckpoint(*found);
        return true;
      },
      [&](ChangeContext& context, const ThreadExecutionKey& key) {
        const auto& recovery = threadOf(context.workspaces(), key).checkpoints.front();
        context.out.write(arguments.has("--json")
                              ? asJson(*chosen)
                              : fmt::format("{}  restored: {}\n"
                                            "To go back: vantrell checkpoint restore {} {}\n",
                                            shortID(chosen->id), onOneLine(chosen->label),
                                            shortID(key.threadID), shortID(recovery.id)));
      });
}

std::optional<std::string> whatIsWrong(const CommandArguments& arguments) {
  static constexpr std::string_view known[] = {"list", "make", "restore"};
  const std::string& action = arguments.words.front();
  if (std::ranges::find(known, action) == std::end(known)) {
    return fmt::format(
        "There is no \"checkpoint {}\".{} \"vantrell checkpoint --help\" lists what there is.",
        onOneLine(action), suggestion(action, known));
  }
  if (action == "restore" && arguments.words.size() != 3) {
    return "\"checkpoint restore\" needs more: vantrell checkpoint restore ID CHECKPOINT";
  }
  if (action == "list" && arguments.words.size() != 2) {
    return "\"checkpoint list\" takes nothing but the task's ID.";
  }
  if (arguments.has("--yes") && action != "restore") {
    return "--yes goes with \"checkpoint restore\" only.";
  }
  return std::nullopt;
}

int checkpoint(const CommandArguments& arguments, const Environment& environment) {
  if (auto wrong = whatIsWrong(arguments)) return refuse({*std::move(wrong)});
  const std::string& action = arguments.words.front();
  if (action == "list") return list(arguments, environment);
  return action == "make" ? make(arguments) : restore(arguments);
}

}  // namespace

const Command checkpointCommand{
    .name = "checkpoint",
    .parameters = "list, make or restore ID ...",
    .summary = "go back to how files and conversation were",
    .options = options,
    .fewestWords = 2,
    .mostWords = 3,
    .introduction =
        "A checkpoint keeps what is not committed in a task's Git repository, and where the\n"
        "conversation stood. Each prompt takes one first. ID is any beginning of a task's ID.\n"
        "\n"
        "  list ID                  the task's checkpoints, newest first\n"
        "  make ID [LABEL]          take one now\n"
        "  restore ID CHECKPOINT    put files and conversation back; CHECKPOINT is any\n"
        "                           beginning of its ID",
    .closing =
        "restore first takes a recovery checkpoint, which leads back. It asks at a terminal;\n"
        "elsewhere it takes --yes. Ignored files and submodules stay as they are.\n"
        "\n"
        "Exit status: 0 done, 1 failed or refused, 2 wrong usage, 130 not wanted after all.",
    .run = checkpoint,
};

}  // namespace vantrell::shell
