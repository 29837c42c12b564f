#include <fmt/format.h>
#include <fmt/ranges.h>
#include <unistd.h>

#include "platform/text/text.h"
#include "records/stores/conversation_json.h"
#include "runtimes/catalog/provider_registry.h"
#include "shell/terminal/commands.h"
#include "shell/terminal/plain_words.h"
#include "shell/terminal/run_preparation.h"
#include "shell/terminal/standard_output.h"
#include "shell/terminal/state_view.h"
#include "shell/terminal/task_lookup.h"
#include "shell/terminal/task_words.h"
#include "shell/terminal/terminal_text.h"
#include "shell/terminal/transcript_printer.h"

namespace vantrell::shell {

namespace {

constexpr CommandOption options[] = {
    {"--last", "N", "only the last N entries (or runs)"},
    {"--entry", "ENTRY", "only from this entry on, as search names it"},
    {"--runs", "", "the runs, in place of what was said"},
    {"--entries", "", "what was said, one line an entry, with the entries' IDs"},
    {"--json", "", "for scripts: the record as it is stored, one JSON object"},
};

std::string headOf(const Workspace& workspace, const ChatThread& thread, Date now,
                   const TerminalStyle& style) {
  std::string head = style.bold(titleOf(thread)) + "\n";
  const auto line = [&](std::string_view label, std::string_view value) {
    if (!value.empty())
      head += fmt::format("  {} {}\n", style.dim(fmt::format("{:<9}", label)), value);
  };
  line("Task", thread.id.text());
  line("Project",
       onOneLine(fmt::format("{}  {}", workspace.name,
                             withTilde(thread.isolatedWorkspacePath.value_or(workspace.path)))));
  std::vector<std::string> providers, sessions;
  for (const auto provider : allAgentProviders) {
    const bool hasRun = std::ranges::any_of(
        thread.runs, [provider](const RunRecord& run) { return run.provider == provider; });
    const auto session = thread.sessionID(provider);
    const std::string label(shortLabel(provider));
    if (hasRun || session) {
      const auto model = thread.modelID(provider);
      providers.push_back(label + (model ? fmt::format(" ({})", onOneLine(*model)) : ""));
    }
    if (session) sessions.push_back(fmt::format("{}: {}", label, onOneLine(*session)));
  }
  line("With", text::joined(providers, ", "));
  line("Sessions", text::joined(sessions, ", "));
  line("Changed",
       fmt::format("{}, begun {}", ago(thread.updatedAt, now), ago(thread.createdAt, now)));
  if (const RunRecord* run = thread.latestRun()) {
    const auto state = stateCell(views::taskState(run->status));
    line("Runs", fmt::format("{}, the last one {}", thread.runs.size(),
                             state.look ? (style.*state.look)(state.text) : state.text));
  }
  std::vector<std::string> marks;
  if (thread.isPinned) marks.emplace_back("pinned");
  if (thread.isArchived) marks.emplace_back("archived");
  line("Marks", text::joined(marks, ", "));
  return head;
}

std::string runsOf(const ChatThread& thread, std::size_t most, Date now,
                   const TerminalStyle& style) {
  TextTable table({{"BEGUN"},
                   {"STATE"},
                   {.heading = "WITH", .leavesAt = 3},
                   {.heading = "TOOK", .leavesAt = 2},
                   {.heading = "PROMPT", .least = 20},
                   {.heading = "OUTCOME", .least = 16, .leavesAt = 1}});
  const auto& runs = thread.runs;
  for (std::size_t i = runs.size() - std::min(runs.size(), most); i < runs.size(); ++i) {
    const auto run = views::runRow(runs[i], now);
    table.add({{run.begun},
               stateCell(run.state),
               {run.provider ? std::string(shortLabel(*run.provider)) : ""},
               {runs[i].completedAt ? run.lasted : ""},
               {run.prompt},
               {run.message, &TerminalStyle::dim}});
  }
  return table.text(style, columnsForTables(STDOUT_FILENO));
}

/// As much of each entry's ID as tells it from the others, 8 characters at least. Those of a
/// runtime often begin alike.
std::vector<std::string> shortEntryIDs(const Transcript& entries) {
  std::vector<std::string> sorted;
  for (const auto& entry : entries) sorted.push_back(entry.id);
  std::ranges::sort(sorted);
  const auto common = [](std::string_view a, std::string_view b) {
    return static_cast<std::size_t>(std::ranges::mismatch(a, b).in1 - a.begin());
  };
  std::vector<std::string> ids;
  for (const auto& entry : entries) {
    const auto place = std::ranges::lower_bound(sorted, entry.id);
    std::size_t length = 7;
    if (place != sorted.begin()) length = std::max(length, common(*(place - 1), entry.id));
    if (place + 1 != sorted.end()) length = std::max(length, common(*(place + 1), entry.id));
    ids.push_back(entry.id.substr(0, length + 1));
  }
  return ids;
}

std::string entriesOf(const ChatThread& thread, std::size_t most, const TerminalStyle& style) {
  TextTable table({{"ENTRY"}, {"KIND"}, {.heading = "TEXT", .least = 20}});
  const auto ids = shortEntryIDs(thread.entries);
  for (std::size_t i = ids.size() - std::min(ids.size(), most); i < ids.size(); ++i) {
    const ChatEntry& entry = thread.entries[i];
    const bool isTool = entry.kind == ChatEntryKind::tool;
    table.add({{ids[i], &TerminalStyle::cyan},
               {std::string(rawText(entry.kind)), &TerminalStyle::dim},
               {isTool ? entry.title.value_or("") : entry.text}});
  }
  return table.text(style, columnsForTables(STDOUT_FILENO));
}

/// What stands behind the transcript: what waits, and how to go on.
std::string footOf(const ChatThread& thread, const TerminalStyle& style) {
  std::string foot;
  for (const auto& queued : thread.queuedPrompts) {
    foot += fmt::format("{} {}\n", style.yellow("waits:"), onOneLine(queued.text));
  }
  if (thread.draftText && !thread.draftText->empty()) {
    foot += fmt::format("{} {}\n", style.yellow("draft:"), onOneLine(*thread.draftText));
  }
  if (terminal::isTerminal(STDOUT_FILENO)) {
    foot += style.dim(asTyped(
                fmt::format("To go on: vantrell run --task {} \"...\"", shortID(thread.id)))) +
            "\n";
  }
  return foot.empty() ? foot : "\n" + foot;
}

/// Where the transcript begins to be shown.
std::expected<std::size_t, UsageError> firstEntry(const ChatThread& thread, std::size_t most,
                                                  const std::optional<std::string>& entry) {
  const std::size_t count = thread.entries.size();
  if (!entry) return count - std::min(count, most);
  for (std::size_t i = 0; i < count; ++i) {
    if (thread.entries[i].id.starts_with(*entry)) return i;
  }
  return usageError(fmt::format("The task has no entry {}. \"vantrell search\" names entries.",
                                onOneLine(*entry)));
}

std::string recordOf(const ChatThread& thread, std::size_t first) {
  std::string json;
  JsonWriter writer(json);
  if (first == 0) {
    writeJson(writer, thread, conversationJson);
    return json + "\n";
  }
  ChatThread part = thread;
  part.entries = Transcript(std::vector<ChatEntry>(
      thread.entries.begin() + static_cast<std::ptrdiff_t>(first), thread.entries.end()));
  writeJson(writer, part, conversationJson);
  return json + "\n";
}

void printTranscript(const ChatThread& thread, std::size_t first, const TerminalStyle& style,
                     StandardOutput& out) {
  TranscriptPrinter printer([&out](std::string_view bytes) { out.write(bytes); }, style);
  printer.isReview = true;
  if (thread.entries.empty()) out.write("\n" + style.dim("Nothing was said yet.") + "\n");
  if (first > 0)
    out.write(fmt::format("\n{}\n", style.dim(fmt::format("... {} earlier {}", first,
                                                          first == 1 ? "entry" : "entries"))));
  if (first < thread.entries.size()) out.write("\n");
  for (std::size_t i = first; i < thread.entries.size() && !out.isClosed(); ++i) {
    printer.entryAdded(thread.entries[i]);
  }
  printer.ended(nullptr);
}

int show(const CommandArguments& arguments, const Environment& environment) {
  if (arguments.has("--runs") && arguments.has("--json")) {
    return refuse({"--json has the runs in it. Leave out --runs."});
  }
  if (arguments.has("--entries") && (arguments.has("--runs") || arguments.has("--json"))) {
    return refuse({"--entries is a list of its own. Leave out --runs and --json."});
  }
  if (arguments.has("--entry") &&
      (arguments.has("--last") || arguments.has("--runs") || arguments.has("--entries"))) {
    return refuse({"--entry says where to begin. Leave out --last, --runs and --entries."});
  }
  const auto last = countOption(arguments, "--last");
  if (!last) return refuse(last.error());
  return withStateView([&](const StateView& state) -> std::expected<int, UsageError> {
    const auto key = findTask(state.workspaces, arguments.words.front());
    if (!key) return std::unexpected(key.error());
    const ChatThread& thread = threadOf(state.workspaces, *key);
    const std::size_t most = last->value_or(std::string::npos);
    const auto style = TerminalStyle::of(STDOUT_FILENO, environment);
    StandardOutput out;
    if (arguments.has("--runs")) {
      const auto& workspace = workspaceOf(state.workspaces, key->workspaceID);
      out.write(headOf(workspace, thread, state.now, style) + "\n");
      out.write(thread.runs.empty() ? "It has not run yet.\n"
                                    : runsOf(thread, most, state.now, style));
      return out.finish(exitStatus::completed);
    }
    if (arguments.has("--entries")) {
      out.write(thread.entries.empty() ? "Nothing was said yet.\n"
                                       : entriesOf(thread, most, style));
      return out.finish(exitStatus::completed);
    }
    const auto first = firstEntry(thread, most, arguments.value("--entry"));
    if (!first) return std::unexpected(first.error());
    if (arguments.has("--json")) {
      out.write(recordOf(thread, *first));
    } else {
      out.write(headOf(workspaceOf(state.workspaces, key->workspaceID), thread, state.now, style));
      printTranscript(thread, *first, style, out);
      out.write(footOf(thread, style));
    }
    return out.finish(exitStatus::completed);
  });
}

}  // namespace

const Command showCommand{
    .name = "show",
    .parameters = "ID",
    .summary = "show a task: what was said and done",
    .options = options,
    .fewestWords = 1,
    .mostWords = 1,
    .introduction =
        "Shows a task as run showed it when it was done. ID is any beginning of the task's ID (at\n"
        "least 4 characters) that no other task has.",
    .closing =
        "Exit status: 0 done, 1 failed, 2 wrong usage.\n"
        "\n"
        "Examples:\n"
        "  vantrell show 3F2A91C0 | less\n"
        "  vantrell show 3F2A --last 5\n"
        "  vantrell show 3F2A --json | jq -r '.entries[] | select(.kind == \"assistant\").text'",
    .run = show,
};

}  // namespace vantrell::shell
