#include "presentation/spoken_text.h"
#include "shell/terminal/commands.h"
#include "shell/terminal/plain_words.h"
#include "shell/terminal/standard_output.h"
#include "shell/terminal/state_view.h"
#include "shell/terminal/task_lookup.h"
#include "shell/terminal/terminal_text.h"

namespace vantrell::shell {

namespace {

/// The last answer that has something to say, or nothing.
std::string lastAnswer(const ChatThread& thread) {
  for (std::size_t i = thread.entries.size(); i-- > 0;) {
    const ChatEntry& entry = thread.entries[i];
    if (entry.kind != ChatEntryKind::assistant) continue;
    if (std::string spoken = SpokenText::render(entry.text); !spoken.empty()) return spoken;
  }
  return {};
}

int say(const CommandArguments& arguments, const Environment&) {
  return withStateView([&](const StateView& state) -> std::expected<int, UsageError> {
    const auto key = findTask(state.workspaces, arguments.words.front());
    if (!key) return std::unexpected(key.error());
    const std::string spoken = lastAnswer(threadOf(state.workspaces, *key));
    if (spoken.empty()) {
      complain("There is no answer in this task yet.");
      return exitStatus::failed;
    }
    StandardOutput out;
    // A synthesizer wants no pictures of control characters, but must not get the characters
    // either.
    out.write(onOneLine(spoken) + "\n");
    return out.finish(exitStatus::completed);
  });
}

}  // namespace

const Command sayCommand{
    .name = "say",
    .parameters = "ID",
    .summary = "the last answer of a task as text for speech",
    .fewestWords = 1,
    .mostWords = 1,
    .introduction =
        "Prints the last answer of a task on one line, without markup and code, as a speech\n"
        "synthesizer wants it. ID is any beginning of the task's ID that no other task has.",
    .closing =
        "Exit status: 0 done, 1 there is no answer yet, 2 wrong usage.\n"
        "\n"
        "Example:\n"
        "  vantrell say 3F2A | espeak-ng",
    .run = say,
};

}  // namespace vantrell::shell
