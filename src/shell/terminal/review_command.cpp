#include <fmt/format.h>
#include <unistd.h>

#include "app/user_state.h"
#include "platform/text/text.h"
#include "records/stores/orchestration_store.h"
#include "records/stores/review_annotation.h"
#include "shell/terminal/commands.h"
#include "shell/terminal/plain_words.h"
#include "shell/terminal/state_view.h"
#include "shell/terminal/task_change.h"
#include "shell/terminal/task_lookup.h"
#include "shell/terminal/task_words.h"
#include "shell/terminal/terminal_text.h"

namespace vantrell::shell {

namespace {

constexpr CommandOption options[] = {
    {"--line", "N", "the line of the file that the note is about"},
    {"--decision", "D", "pending (default), accepted or rejected"},
    {"--json", "", "for scripts: the notes as they are stored, one JSON object a line"},
};

std::string styled(ReviewDecision decision, const TerminalStyle& style) {
  const auto word = rawText(decision);
  switch (decision) {
    case ReviewDecision::accepted: return style.green(word);
    case ReviewDecision::rejected: return style.red(word);
    default: return style.yellow(word);
  }
}

std::string shown(const ReviewAnnotation& note, Date now, const TerminalStyle& style) {
  const std::string place =
      note.line ? fmt::format("{}:{}", note.filePath, *note.line) : note.filePath;
  std::string text = fmt::format("{}  {}  {}\n", style.bold(onOneLine(place)),
                                 styled(note.decision, style), style.dim(ago(note.createdAt, now)));
  const std::string body = sanitized(note.body);
  for (const auto line : text::split(body, '\n')) text += fmt::format("  {}\n", line);
  return text;
}

/// Read here, since whoever else is at work may have written the file.
std::vector<ReviewAnnotation> storedNotes(const ThreadExecutionKey& key) {
  OrchestrationStore store(
      UserFolders{}.orOwn().support, [] { return Date::current(); }, [](const auto&) {});
  return annotationsOf(key, loadReviewAnnotations(store));
}

int list(const CommandArguments& arguments, const Environment& environment) {
  return withStateView([&](const StateView& state) -> std::expected<int, UsageError> {
    const auto key = findTask(state.workspaces, arguments.words.front());
    if (!key) return std::unexpected(key.error());
    const auto style = TerminalStyle::of(STDOUT_FILENO, environment);
    const auto notes = storedNotes(*key);
    StandardOutput out;
    for (const auto& note : notes) {
      out.write(arguments.has("--json") ? encodeReviewAnnotation(note) + "\n"
                                        : shown(note, state.now, style));
    }
    if (notes.empty() && !arguments.has("--json")) {
      out.write(asTyped(
          fmt::format("No notes yet. To write one: vantrell review {} FILE --line 12 \"...\"\n",
                      shortID(key->threadID))));
    }
    return out.finish(exitStatus::completed);
  });
}

int add(const CommandArguments& arguments, std::optional<std::int64_t> line,
        ReviewDecision decision) {
  const std::string file = text::repaired(arguments.words[1]);
  const std::string body = text::repaired(arguments.words[2]);
  if (text::trimmed(body).empty()) return refuse({"The note is empty."});
  return changeTasks([&](ChangeContext& context) -> std::expected<int, UsageError> {
    const auto key = findTask(context.workspaces(), arguments.words.front());
    if (!key) return std::unexpected(key.error());
    auto& reviews = context.model.reviews;
    reviews.addReviewAnnotation(file, line, body, decision, *key);
    if (!reviews.saveFailure().empty()) {
      complain(
          fmt::format("The note could not be saved: {}. Free some space or make the folder "
                      "writable, then write it again.",
                      reviews.saveFailure()));
      return exitStatus::failed;
    }
    const auto& note = reviews.reviewAnnotations().back();
    context.out.write(arguments.has("--json")
                          ? encodeReviewAnnotation(note) + "\n"
                          : fmt::format("{}  noted: {}\n", shortID(key->threadID),
                                        titleOf(threadOf(context.workspaces(), *key))));
    return exitStatus::completed;
  });
}

int review(const CommandArguments& arguments, const Environment& environment) {
  const auto line = countOption(arguments, "--line");
  if (!line) return refuse(line.error());
  const std::string named = arguments.value("--decision").value_or("pending");
  const auto decision = fromRawText<ReviewDecision>(named);
  if (!decision) {
    return refuse({fmt::format("There is no decision \"{}\": pending, accepted or rejected.",
                               onOneLine(named))});
  }
  if (arguments.words.size() == 2) {
    return refuse({"The note is missing: vantrell review ID FILE \"what there is to say\""});
  }
  if (arguments.words.size() == 3) {
    return add(arguments, *line ? std::optional(static_cast<std::int64_t>(**line)) : std::nullopt,
               *decision);
  }
  if (arguments.has("--line") || arguments.has("--decision")) {
    return refuse({"--line and --decision go with a note: vantrell review ID FILE \"...\""});
  }
  return list(arguments, environment);
}

}  // namespace

const Command reviewCommand{
    .name = "review",
    .parameters = "ID [FILE NOTE]",
    .summary = "list or write notes on what a task has changed",
    .options = options,
    .fewestWords = 1,
    .mostWords = 3,
    .introduction =
        "Lists the notes on what a task has changed; with a file and a text, writes one.\n"
        "ID is any beginning of a task's ID that no other task has.",
    .closing =
        "Exit status: 0 done, 1 failed, 2 wrong usage.\n"
        "\n"
        "Examples:\n"
        "  vantrell review 3F2A91C0\n"
        "  vantrell review 3F2A src/main.cpp --line 40 --decision rejected \"leaks the socket\"",
    .run = review,
};

}  // namespace vantrell::shell
