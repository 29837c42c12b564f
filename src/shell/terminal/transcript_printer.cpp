#include "shell/terminal/transcript_printer.h"

#include <fmt/format.h>

#include "platform/text/text.h"
#include "records/values/project_hook.h"
#include "shell/terminal/terminal_text.h"
#include "views/run_rows.h"
#include "views/transcript_rows.h"

namespace vantrell::shell {

namespace {

using views::Progress;

constexpr std::size_t promptLinesShown = 6;
constexpr std::size_t systemLinesShown = 40;
constexpr std::size_t hookLinesShown = 12;
constexpr std::string_view stoppedText = "Stopped by you.";
/// What the record of a tool call says when an update came without a title.
constexpr std::string_view namelessTool = "Using a tool";

bool hasEnded(std::string_view status) {
  return !isOpenToolStatus(status);
}

std::string coloured(const std::string& text, Progress progress, const TerminalStyle& style) {
  switch (progress) {
    case Progress::completed: return style.green(text);
    case Progress::failed: return style.red(text);
    default: return style.cyan(text);
  }
}

}  // namespace

// ---- blocks -------------------------------------------------------------------------------------

void TranscriptPrinter::line(std::string_view styled) {
  write_(fmt::format("{}\n", styled));
}

void TranscriptPrinter::beginBlock(Block block) {
  endText();
  isTextLast_ = false;
  const bool joins = block == Block::tool && block_ == Block::tool;
  if (block_ != Block::none && !joins) write_("\n");
  block_ = block;
}

/// Its block begins with the first of it that can be seen.
void TranscriptPrinter::showText(std::string_view text) {
  if (text.empty()) return;
  if (!std::exchange(isTextLast_, true)) {
    if (block_ != Block::none) write_("\n");
    block_ = Block::text;
  }
  write_(text);
}

void TranscriptPrinter::endText() {
  const auto last = answers_.find(answerID_);
  if (last != answers_.end()) showText(last->second.stream.finish(style_.columns()));
}

std::vector<std::string> TranscriptPrinter::linesOf(std::string_view text, std::size_t most) const {
  return isReview ? text::visibleLines(text::trimmed(text)) : boundedLines(text, most);
}

// ---- entries ------------------------------------------------------------------------------------

void TranscriptPrinter::introduced(const RunIntroduction& introduction) {
  resumeCommand_ = fmt::format("{} {}", introduction.resumeCommand,
                               views::shortID(introduction.conversation.threadID));
  beginBlock(Block::other);
  line(style_.dim(
      fmt::format("{} in {}", sanitized(introduction.runtime), sanitized(introduction.folder))));
  if (!introduction.permissionNotice.empty()) line(style_.yellow(introduction.permissionNotice));
  if (introduction.earlierEntries != 0) {
    line(
        style_.dim(fmt::format("Going on after {} earlier entries.", introduction.earlierEntries)));
  }
}

void TranscriptPrinter::entryAdded(const ChatEntry& entry) {
  if (entry.kind != ChatEntryKind::user && !isHookEntry(entry)) agentWasHeard_ = true;
  switch (entry.kind) {
    case ChatEntryKind::user: return showUser(entry);
    case ChatEntryKind::assistant:
    case ChatEntryKind::thought: return textAdded(entry, entry.text);
    case ChatEntryKind::tool: return showTool(entry);
    case ChatEntryKind::system:
      if (entry.text == stoppedText && !isReview) {
        stopIsUntold_ = true;  // the last line says it
        return;
      }
      beginBlock(Block::other);
      for (const auto& each : linesOf(entry.text, systemLinesShown)) {
        line(style_.yellow(fmt::format("• {}", each)));
      }
  }
}

void TranscriptPrinter::entryReplaced(const ChatEntry& entry) {
  if (entry.kind == ChatEntryKind::tool) return showTool(entry);
  if (entry.kind == ChatEntryKind::user) return;  // the person knows these words
  if (const auto shown = answers_.find(entry.id); shown != answers_.end()) {
    const std::size_t taken = shown->second.taken;
    if (taken <= entry.text.size()) {
      return textAdded(entry, std::string_view(entry.text).substr(taken));
    }
    endText();
    isTextLast_ = false;
    answers_.erase(shown);
  }
  entryAdded(entry);
}

void TranscriptPrinter::textAdded(const ChatEntry& entry, std::string_view text) {
  if (answerID_ != entry.id) {
    endText();
    isTextLast_ = false;
    answerID_ = entry.id;
  }
  const bool isThought = entry.kind == ChatEntryKind::thought;
  const AnswerStream fresh(style_,
                           isThought ? AnswerStream::Kind::thought : AnswerStream::Kind::answer);
  Answer& answer = answers_.try_emplace(entry.id, fresh).first->second;
  answer.taken = entry.text.size();
  showText(answer.stream.append(text, style_.columns()));
}

void TranscriptPrinter::showUser(const ChatEntry& entry) {
  if (const auto earlier = std::exchange(outcome_, std::nullopt)) {
    showOutcome(*earlier);
    agentWasHeard_ = false;
  }
  beginBlock(Block::other);
  std::string_view mark = "› ";
  for (const auto& each : linesOf(entry.text, promptLinesShown)) {
    line(style_.bold(std::string(std::exchange(mark, "  ")) + each));
  }
  for (const auto& attachment : entry.attachments) {
    line(style_.dim(fmt::format("  @{}", onOneLine(attachment.path))));
  }
}

/// A line of its own once it has ended; until then a passing status.
void TranscriptPrinter::showTool(const ChatEntry& entry) {
  Tool& tool = tools_[entry.id];
  // Some agents name a call once and leave the name out later.
  const std::string title = onOneLine(entry.title.value_or(""));
  if (tool.title.empty()) tool.title = namelessTool;
  if (!title.empty() && title != namelessTool) tool.title = title;
  const auto row = views::toolRow(entry);
  const bool hasFailed = row.progress == Progress::failed;
  const std::string word = hasFailed ? fmt::format(" ({})", row.status) : std::string();
  const std::size_t room = style_.columns() - std::min(style_.columns(), word.size() + 2);
  const std::string shown =
      coloured(fmt::format("{} {}{}", views::sign(row.progress), cutTo(tool.title, room), word),
               row.progress, style_);
  if (!hasEnded(entry.status.value_or("pending")) && !isReview) {
    tool.openLine = shown;
    return status(fmt::format("▸ {}", tool.title));
  }
  tool.openLine.clear();
  beginBlock(Block::tool);
  line(shown);
  if (!isHookEntry(entry)) return;
  for (const auto& each : linesOf(entry.text, hookLinesShown)) {
    line(style_.dim(fmt::format("    {}", each)));
  }
}

/// The whole list where the steps are new, else those that are done.
void TranscriptPrinter::planReplaced(const std::vector<PlanEntry>& plan) {
  const auto earlier = std::exchange(plan_, plan);
  if (plan == earlier) return;
  agentWasHeard_ = true;
  const bool hasSameSteps =
      std::ranges::equal(earlier, plan, {}, &PlanEntry::content, &PlanEntry::content);
  std::vector<std::string> lines;
  for (std::size_t i = 0; i < plan.size(); ++i) {
    const bool isNews =
        !hasSameSteps || (plan[i].status != earlier[i].status && hasEnded(plan[i].status));
    if (!isNews) continue;
    const auto row = views::planRow(plan[i]);
    const std::string text =
        fmt::format("  {} {}", views::sign(row.progress), cutTo(row.words, style_.columns() - 4));
    lines.push_back(row.progress == Progress::pending ? text
                                                      : coloured(text, row.progress, style_));
  }
  if (lines.empty()) return;
  beginBlock(Block::other);
  if (!hasSameSteps) line(style_.bold("Plan"));
  for (const auto& each : lines) line(each);
}

// ---- the run ------------------------------------------------------------------------------------

void TranscriptPrinter::promptQueued(std::size_t waiting) {
  beginBlock(Block::other);
  line(style_.dim(
      fmt::format("Queued for when this turn has gone well ({} in the queue).", waiting)));
}

void TranscriptPrinter::runChanged(const RunRecord& run) {
  const bool isUnderWay =
      run.status == RunRecordStatus::starting || run.status == RunRecordStatus::running;
  if (isUnderWay && run.statusMessage && !isTextLast_) status(*run.statusMessage);
  if (!isActive(run.status)) outcome_ = run;
}

void TranscriptPrinter::livenessChanged(const RunRecord& run) {
  beginBlock(Block::other);
  line(style_.yellow(fmt::format("• {}", onOneLine(run.statusMessage.value_or("")))));
}

void TranscriptPrinter::ended(const RunRecord* run) {
  endText();
  // One that is stopped before its run begins leaves the run before it as the last one.
  if (run && outcome_) {
    showOutcome(*run);
  } else if (stopIsUntold_) {
    beginBlock(Block::other);
    line(style_.yellow(fmt::format("■ {}", stoppedText)));
  } else if (!run) {
    return;
  }
  if (!resumeCommand_.empty()) {
    line(style_.dim(fmt::format("To go on: {} \"...\"", resumeCommand_)));
  }
}

void TranscriptPrinter::showOutcome(const RunRecord& run) {
  stopIsUntold_ = false;
  for (const auto& [id, tool] : std::exchange(tools_, {})) {
    if (tool.openLine.empty()) continue;
    beginBlock(Block::tool);
    line(tool.openLine);
  }
  beginBlock(Block::other);
  if (run.status == RunRecordStatus::completed && !agentWasHeard_) {
    // Some runtimes end a turn that failed for them as if it had gone well.
    line(style_.yellow("• The agent ended its turn without a word."));
  }
  const std::string words = onOneLine(run.statusMessage.value_or(""));
  switch (run.status) {
    case RunRecordStatus::completed: return line(style_.green(fmt::format("✓ {}", words)));
    case RunRecordStatus::cancelled: return line(style_.yellow(fmt::format("■ {}", words)));
    default: return line(style_.red(fmt::format("✗ {}", words)));
  }
}

}  // namespace vantrell::shell
