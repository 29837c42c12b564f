#include <fmt/format.h>
#include <unistd.h>

#include "engine/turns/session_status.h"
#include "platform/values/json.h"
#include "shell/terminal/answer_lines.h"
#include "shell/terminal/commands.h"
#include "shell/terminal/json_member.h"
#include "shell/terminal/plain_words.h"
#include "shell/terminal/standard_output.h"
#include "shell/terminal/state_view.h"
#include "shell/terminal/task_lookup.h"
#include "shell/terminal/task_words.h"
#include "shell/terminal/terminal_text.h"

namespace vantrell::shell {

namespace {

/// The task whose run changed last, archived ones aside; absent where none has run.
std::optional<ThreadExecutionKey> lastRunning(const std::vector<Workspace>& workspaces) {
  std::optional<ThreadExecutionKey> last;
  Date changed;
  for (const auto& workspace : workspaces) {
    for (const auto& thread : workspace.threads) {
      const RunRecord* run = thread.latestRun();
      if (!run || thread.isArchived || (last && run->updatedAt <= changed)) continue;
      last = ThreadExecutionKey{workspace.id, thread.id};
      changed = run->updatedAt;
    }
  }
  return last;
}

std::string asJson(const Workspace& workspace, const ChatThread& thread,
                   const SessionStatusReport& report, Date now) {
  std::string line;
  JsonWriter writer(line);
  writer.beginObject();
  writeTaskMembers(writer, workspace, thread);
  member(writer, "phase", rawText(report.phase));
  if (const auto provider = providerOf(thread)) member(writer, "provider", rawText(*provider));
  if (report.startedAt) member(writer, "startedAt", report.startedAt->secondsSinceReference());
  if (report.lastActivityAt) {
    member(writer, "lastActivityAt", report.lastActivityAt->secondsSinceReference());
  }
  member(writer, "queuedPromptCount", static_cast<std::int64_t>(report.queuedPromptCount));
  if (report.detail) member(writer, "detail", *report.detail);
  member(writer, "message", report.message(now));
  writer.endObject();
  return line + "\n";
}

/// For people: which task it is, and the report, laid out on a terminal.
std::string page(const Workspace& workspace, const ChatThread& thread, const std::string& message,
                 const TerminalStyle& style) {
  std::string text =
      fmt::format("{}  {} {}\n\n", style.cyan(shortID(thread.id)), style.bold(titleOf(thread)),
                  style.dim(onOneLine(fmt::format("({})", workspace.name))));
  if (!style.isLive()) return text + sanitized(message) + "\n";
  const auto columns = static_cast<std::size_t>(std::max(style.size().columns - 1, 20));
  for (const auto& line : answerLines(message, style, columns)) {
    text += line + "\n";
  }
  return text +
         style.dim(asTyped(fmt::format("\nTo look at it: vantrell show {}\n", shortID(thread.id))));
}

int status(const CommandArguments& arguments, const Environment& environment) {
  return withStateView([&](const StateView& state) -> std::expected<int, UsageError> {
    std::optional<ThreadExecutionKey> key;
    if (!arguments.words.empty()) {
      const auto found = findTask(state.workspaces, arguments.words.front());
      if (!found) return std::unexpected(found.error());
      key = *found;
    } else {
      key = lastRunning(state.workspaces);
    }
    if (!key) {
      complain("No task has run yet. To begin one: vantrell run \"explain this project\"");
      return exitStatus::failed;
    }
    const Workspace& workspace = workspaceOf(state.workspaces, key->workspaceID);
    const ChatThread& thread = threadOf(state.workspaces, *key);
    const auto report = SessionStatusReport::ofRecord(thread);
    StandardOutput out;
    out.write(arguments.has(jsonOption.name) ? asJson(workspace, thread, report, state.now)
                                             : page(workspace, thread, report.message(state.now),
                                                    TerminalStyle::of(STDOUT_FILENO, environment)));
    return out.finish(exitStatus::completed);
  });
}

constexpr CommandOption options[] = {jsonOption};

}  // namespace

const Command statusCommand{
    .name = "status",
    .parameters = "[ID]",
    .summary = "how a task stands, without asking its agent",
    .options = options,
    .mostWords = 1,
    .introduction =
        "Says whether a task is at work, for how long, when its agent was last heard, what it\n"
        "waits for and how many prompts wait. Without an ID, of the task that ran last. It is\n"
        "told from what is stored, also while Vantrell works on it: no agent is asked, nothing\n"
        "is added to the conversation. ID is any beginning of the task's ID that no other task\n"
        "has.",
    .closing =
        "A task whose Vantrell has ended without a word counts as interrupted.\n"
        "\n"
        "Exit status: 0 done, 1 failed, or no task has run yet, 2 wrong usage.\n"
        "\n"
        "Examples:\n"
        "  vantrell status\n"
        "  vantrell status 3F2A --json | jq -r .phase",
    .run = status,
};

}  // namespace vantrell::shell
