// The commands that show one task: show, export, say. They read what is stored and change nothing.
#include <fmt/format.h>

#include "app/conversation_transfer.h"
#include "platform/files/files.h"
#include "platform/text/text.h"
#include "presentation/conversation_markdown.h"
#include "presentation/spoken_text.h"
#include "records/stores/conversation_json.h"
#include "shell/terminal/command_context.h"
#include "shell/terminal/command_groups.h"
#include "shell/terminal/task_lookup.h"
#include "shell/terminal/task_words.h"
#include "shell/terminal/terminal_text.h"
#include "shell/terminal/transcript_printer.h"
#include "views/task_search.h"

namespace vantrell::shell {

namespace {

// ---- show ---------------------------------------------------------------------------------------

std::string headOf(const Workspace& workspace, const ChatThread& thread, Date now,
                   const TerminalStyle& style) {
  std::string head = style.bold(titleOf(thread)) + "\n";
  const auto line = [&](std::string_view label, std::string_view value) {
    if (value.empty()) return;
    head += fmt::format("  {} {}\n", style.dim(fmt::format("{:<9}", label)), onOneLine(value));
  };
  std::vector<std::string> providers, sessions, marks;
  for (const auto provider : allAgentProviders) {
    const bool hasRun =
        std::ranges::find(thread.runs, provider, &RunRecord::provider) != thread.runs.end();
    const auto session = thread.sessionID(provider);
    const std::string label(shortLabel(provider));
    if (hasRun || session) {
      const auto model = thread.modelID(provider);
      providers.push_back(model ? fmt::format("{} ({})", label, *model) : label);
    }
    if (session) sessions.push_back(fmt::format("{}: {}", label, *session));
  }
  if (thread.isPinned) marks.emplace_back("pinned");
  if (thread.isArchived) marks.emplace_back("archived");
  line("Task", thread.id.text());
  line("Project",
       workspace.name + "  " + withTilde(thread.isolatedWorkspacePath.value_or(workspace.path)));
  line("With", text::joined(providers, ", "));
  line("Sessions", text::joined(sessions, ", "));
  line("Changed",
       fmt::format("{}, begun {}", ago(thread.updatedAt, now), ago(thread.createdAt, now)));
  if (const RunRecord* run = thread.latestRun()) {
    line("Runs", fmt::format("{}, the last one {}", thread.runs.size(),
                             views::word(views::taskState(run->status))));
  }
  line("Marks", text::joined(marks, ", "));
  return head;
}

Outcome showRuns(CommandContext& context, const ChatThread& thread, std::size_t first, Date now) {
  TextTable table({{"BEGUN"}, {"STATE"}, {"WITH"}, {"TOOK"}, {"PROMPT", 12}, {"OUTCOME", 12}});
  for (std::size_t i = first; i < thread.runs.size(); ++i) {
    const auto run = views::runRow(thread.runs[i], now);
    table.add({{run.begun},
               stateCell(run.state),
               {run.provider ? std::string(shortLabel(*run.provider)) : ""},
               {thread.runs[i].completedAt ? run.lasted : ""},
               {run.prompt},
               {run.message, look::dim}});
  }
  return context.showTable(table, thread.runs.empty(), "This task has no runs yet.\n");
}

Outcome showEntries(CommandContext& context, const ChatThread& thread, std::size_t first) {
  TextTable table({{"ENTRY"}, {"KIND"}, {"TEXT", 20}});
  const auto ids = views::shortEntryIDs(thread);
  for (std::size_t i = first; i < ids.size(); ++i) {
    const ChatEntry& entry = thread.entries[i];
    const bool isTool = entry.kind == ChatEntryKind::tool;
    table.add({{ids[i], look::cyan},
               {std::string(rawText(entry.kind)), look::dim},
               {isTool ? entry.title.value_or("") : entry.text}});
  }
  return context.showTable(table, ids.empty(), "Nothing was said yet.\n");
}

std::string recordOf(const ChatThread& thread, std::size_t first) {
  std::string json;
  JsonWriter writer(json);
  ChatThread part = thread;
  if (first > 0) {
    part.entries = Transcript(std::vector<ChatEntry>(
        thread.entries.begin() + static_cast<std::ptrdiff_t>(first), thread.entries.end()));
  }
  writeJson(writer, part, conversationJson);
  return json;
}

void printTranscript(Console& console, const ChatThread& thread, std::size_t first) {
  const auto& style = console.style();
  TranscriptPrinter printer([&](std::string_view bytes) { console.write(bytes); }, style);
  printer.isReview = true;
  if (thread.entries.empty()) console.write("\n" + style.dim("Nothing was said yet.") + "\n");
  if (first > 0) {
    console.write(fmt::format("\n{}\n", style.dim(fmt::format("... {} earlier {}", first,
                                                              first == 1 ? "entry" : "entries"))));
  }
  if (first < thread.entries.size()) console.write("\n");
  for (std::size_t i = first; i < thread.entries.size() && !console.isClosed(); ++i) {
    printer.entryAdded(thread.entries[i]);
  }
  printer.ended(nullptr);
  std::string waiting;
  for (const auto& queued : thread.queuedPrompts) {
    waiting += fmt::format("{} {}\n", style.yellow("waits:"), onOneLine(queued.text));
  }
  if (!thread.draftText.value_or("").empty()) {
    waiting += fmt::format("{} {}\n", style.yellow("draft:"), onOneLine(*thread.draftText));
  }
  if (!waiting.empty()) console.write("\n" + waiting);
}

void show(CommandContext& context) {
  const auto& given = context.arguments;
  const bool wantsRuns = given.has("--runs"), wantsEntries = given.has("--entries");
  if (wantsRuns + wantsEntries + context.isJson() > 1) {
    return context.misused("--runs, --entries and --json exclude each other. --json has all runs.");
  }
  if (given.has("--entry") && (given.has("--last") || wantsRuns || wantsEntries)) {
    return context.misused("--entry says where to begin. Leave out --last, --runs and --entries.");
  }
  context.viewTask(
      [&](const StateView& state, const Workspace& workspace, const ChatThread& thread) -> Outcome {
        const std::size_t most = given.count("--last").value_or(std::string::npos);
        const auto beforeLast = [most](std::size_t count) { return count - std::min(count, most); };
        std::size_t first = beforeLast(thread.entries.size());
        if (wantsEntries) return showEntries(context, thread, first);
        if (const auto entry = given.value("--entry")) {
          const auto found = findEntry(thread, *entry);
          if (!found) return std::unexpected(found.error());
          first = *found;
        }
        if (context.isJson()) {
          context.writeJson(recordOf(thread, first));
          return exitStatus::completed;
        }
        context.console.write(headOf(workspace, thread, state.now, context.style()));
        if (!wantsRuns) {
          printTranscript(context.console, thread, first);
          return exitStatus::completed;
        }
        context.console.write("\n");
        return showRuns(context, thread, beforeLast(thread.runs.size()), state.now);
      });
}

// ---- export, say --------------------------------------------------------------------------------

void exportTask(CommandContext& context) {
  context.viewTask(
      [&](const StateView&, const Workspace& workspace, const ChatThread& thread) -> Outcome {
        const std::string document =
            ConversationMarkdown::render(thread.title, workspace.name, thread.entries);
        if (context.arguments.words.size() == 1 || context.word(1) == "-") {
          context.console.write(document);
          return exitStatus::completed;
        }
        const std::string path = context.absolute(context.word(1));
        if (!context.arguments.has("--replace") && files::exists(path)) {
          return usageError(
              fmt::format("\"{}\" exists already. --replace writes over it.", context.word(1)));
        }
        return context.after(writeExport(path, document, true), [] {});
      });
}

void say(CommandContext& context) {
  context.viewTask([&](const StateView&, const Workspace&, const ChatThread& thread) -> Outcome {
    for (std::size_t i = thread.entries.size(); i-- > 0;) {
      const ChatEntry& entry = thread.entries[i];
      if (entry.kind != ChatEntryKind::assistant) continue;
      const std::string spoken = SpokenText::render(entry.text);
      if (spoken.empty()) continue;
      // A synthesizer must not get control characters either.
      context.console.write(onOneLine(spoken) + "\n");
      return exitStatus::completed;
    }
    context.complain("There is no answer in this task yet.");
    return exitStatus::failed;
  });
}

constexpr CommandOption showOptions[] = {
    {"--last", "N", "only the last N entries (or runs)", {}, true},
    {"--entry", "ENTRY", "only from this entry on, as search names it"},
    {"--runs", "", "the runs, in place of what was said"},
    {"--entries", "", "what was said, one line an entry, with the entries' IDs"},
    {"--json", "", "for scripts: the record as it is stored, one JSON object"},
};
constexpr CommandOption exportOptions[] = {{"--replace", "", "write over an existing file"}};

constexpr Command commands[] = {
    {"show", "ID", "show a task: what was said and done", showOptions, show, "",
     "Examples:\n"
     "  vantrell show 3F2A --last 5\n"
     "  vantrell show 3F2A --json | jq -r '.entries[] | select(.kind == \"assistant\").text'"},
    {"export", "ID [FILE]", "a task's conversation as a Markdown document", exportOptions,
     exportTask,
     "Writes what was said in a task as Markdown, to standard output or to FILE. Thoughts\n"
     "and tool calls are left out."},
    {"say",
     "ID",
     "the last answer of a task as text for speech",
     {},
     say,
     "Prints the last answer of a task on one line, without markup and code.",
     "Example:\n"
     "  vantrell say 3F2A | espeak-ng"},
};

}  // namespace

std::span<const Command> taskShowCommands() {
  return commands;
}

}  // namespace vantrell::shell
