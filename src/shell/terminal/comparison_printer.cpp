#include "shell/terminal/comparison_printer.h"

#include <fmt/format.h>

#include "platform/text/text.h"
#include "shell/terminal/permission_prompt.h"
#include "shell/terminal/task_words.h"
#include "shell/terminal/terminal_text.h"
#include "shell/terminal/transcript_printer.h"

namespace vantrell::shell {

namespace {
/// Of a stop; the line of the run's end says it as well.
constexpr std::string_view stoppedText = "Stopped by you.";
}  // namespace

// ---- the screen ---------------------------------------------------------------------------------

void ComparisonSheet::put(std::string_view lines) {
  if (prompt_.empty()) return write_(lines);
  write_(fmt::format("\n{}{}", lines, prompt_));
}

void ComparisonSheet::prompt(std::string text) {
  // One that was withdrawn has no end of line yet.
  if (!prompt_.empty()) write_("\n");
  prompt_ = std::move(text);
  write_(prompt_);
}

void ComparisonSheet::interrupted() {
  if (!prompt_.empty()) write_("\n");
  prompt_.clear();
}

// ---- one of the two -----------------------------------------------------------------------------

ComparisonPrinter::ComparisonPrinter(ComparisonSheet& sheet, std::string name,
                                     std::function<const ChatThread*()> thread, std::size_t known,
                                     bool showsAnswerPrompt)
    : sheet_(sheet),
      name_(std::move(name)),
      thread_(std::move(thread)),
      known_(known),
      showsAnswerPrompt_(showsAnswerPrompt) {}

void ComparisonPrinter::tell(std::string_view styled) {
  sheet_.put(fmt::format("{} {}\n", sheet_.style().bold(fmt::format("{:<8}", name_)), styled));
}

void ComparisonPrinter::introduced(const RunIntroduction& introduction) {
  const auto folder = onOneLine(withTilde(std::string(introduction.folder)));
  tell(sheet_.style().dim(fmt::format("task {}{}{}", shortID(introduction.conversation.threadID),
                                      folder.empty() ? "" : " in ", folder)));
  if (!introduction.freedom.empty()) tell(sheet_.style().yellow(introduction.freedom));
}

void ComparisonPrinter::entryAdded(const ChatEntry& entry) {
  const auto& style = sheet_.style();
  if (entry.text == stoppedText) return;
  if (entry.kind == ChatEntryKind::system) {
    return tell(style.yellow(fmt::format("• {}", onOneLine(entry.text))));
  }
  if (entry.kind != ChatEntryKind::tool) return;
  const std::string status = entry.status.value_or("pending");
  if (isOpenToolStatus(status)) return;
  if (std::exchange(toldTools_[entry.id], status) == status) return;
  const std::string title = onOneLine(entry.title.value_or("A tool"));
  tell(status == "completed" ? style.green("✓ " + title)
                             : style.red(fmt::format("✗ {} ({})", title, onOneLine(status))));
}

void ComparisonPrinter::permissionAsked(const PermissionRequest& request) {
  std::string lines = fmt::format("\n{}\n", sheet_.style().bold(name_ + " asks:"));
  for (const auto& each : permissionLines(request, sheet_.style())) lines += each + "\n";
  sheet_.put(lines);
  permissionStillOpen(request);
}

void ComparisonPrinter::permissionStillOpen(const PermissionRequest& request) {
  if (!showsAnswerPrompt_) return;
  sheet_.prompt(sheet_.style().bold(fmt::format("{}: {}", name_, answerPrompt(request))));
}

void ComparisonPrinter::permissionAnswered(const PermissionOption* option) {
  sheet_.interrupted();
  tell(sheet_.style().dim(fmt::format("→ {}", option ? onOneLine(option->name) : "Refused")));
}

void ComparisonPrinter::runChanged(const RunRecord& run) {
  const bool isUnderWay =
      run.status == RunRecordStatus::starting || run.status == RunRecordStatus::running;
  if (!isUnderWay || !run.statusMessage || *run.statusMessage == lastStatus_) return;
  lastStatus_ = *run.statusMessage;
  tell(sheet_.style().dim(onOneLine(lastStatus_)));
}

void ComparisonPrinter::ended(const RunRecord* run) {
  const ChatThread* thread = thread_();
  if (!thread || !run) return;
  const auto& style = sheet_.style();
  std::string page = fmt::format(
      "\n{}\n\n", style.bold(fmt::format("━━ {} · task {} ━━", name_, shortID(thread->id))));
  TranscriptPrinter printer([&page](std::string_view bytes) { page += bytes; }, style);
  printer.isReview = true;
  for (std::size_t i = known_; i < thread->entries.size(); ++i) {
    const ChatEntry& entry = thread->entries[i];
    if (entry.kind != ChatEntryKind::user && entry.text != stoppedText) printer.entryAdded(entry);
  }
  printer.ended(run);
  sheet_.put(page + "\n");
}

}  // namespace vantrell::shell
