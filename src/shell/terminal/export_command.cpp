#include <fmt/format.h>
#include <unistd.h>

#include "platform/files/files.h"
#include "platform/terminal/terminal.h"
#include "presentation/conversation_markdown.h"
#include "shell/terminal/commands.h"
#include "shell/terminal/plain_words.h"
#include "shell/terminal/standard_output.h"
#include "shell/terminal/state_view.h"
#include "shell/terminal/task_lookup.h"
#include "shell/terminal/terminal_text.h"

namespace vantrell::shell {

namespace {

constexpr CommandOption options[] = {
    {"--replace", "", "write over a file that is there"},
};

constexpr mode_t ownerOnly = 0600;  // conversations may hold anything

std::expected<int, UsageError> writeTo(const std::string& file, const std::string& document,
                                       bool replaces) {
  const std::string path = files::standardized(file);
  if (!replaces && files::exists(path)) {
    return usageError(
        fmt::format("\"{}\" is there already. --replace writes over it.", onOneLine(file)));
  }
  if (const auto written = files::writeAtomically(path, document, ownerOnly); !written) {
    complain(written.error().description);
    return exitStatus::failed;
  }
  return exitStatus::completed;
}

int exportTask(const CommandArguments& arguments, const Environment&) {
  return withStateView([&](const StateView& state) -> std::expected<int, UsageError> {
    const auto key = findTask(state.workspaces, arguments.words.front());
    if (!key) return std::unexpected(key.error());
    const ChatThread& thread = threadOf(state.workspaces, *key);
    const Workspace& workspace = workspaceOf(state.workspaces, key->workspaceID);
    const std::string document =
        ConversationMarkdown::render(thread.title, workspace.name, thread.entries);
    const bool toFile = arguments.words.size() == 2 && arguments.words[1] != "-";
    if (toFile) return writeTo(arguments.words[1], document, arguments.has("--replace"));
    StandardOutput out;
    out.write(terminal::isTerminal(STDOUT_FILENO) ? sanitized(document) : document);
    return out.finish(exitStatus::completed);
  });
}

}  // namespace

const Command exportCommand{
    .name = "export",
    .parameters = "ID [FILE]",
    .summary = "a task's conversation as a Markdown document",
    .options = options,
    .fewestWords = 1,
    .mostWords = 2,
    .introduction =
        "Writes what was said in a task as Markdown, to standard output or to FILE. Thoughts\n"
        "and tool calls are left out. ID is any beginning of the task's ID that no other task\n"
        "has.",
    .closing =
        "Exit status: 0 done, 1 the document could not be written, 2 wrong usage.\n"
        "\n"
        "Examples:\n"
        "  vantrell export 3F2A91C0 talk.md\n"
        "  vantrell export 3F2A | less",
    .run = exportTask,
};

}  // namespace vantrell::shell
