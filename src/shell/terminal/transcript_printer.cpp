#include "shell/terminal/transcript_printer.h"

#include <fmt/format.h>

#include "platform/text/text.h"
#include "records/values/project_hook.h"
#include "shell/terminal/terminal_text.h"

namespace vantrell::shell {

namespace {

constexpr std::size_t promptLinesShown = 6;
constexpr std::size_t systemLinesShown = 40;
constexpr std::size_t hookLinesShown = 12;
constexpr std::size_t taskIDShown = 8;  // characters, plenty to tell tasks apart
constexpr std::string_view stoppedText = "Stopped by you.";

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
  if (stream_) showText(stream_->finish(columns()));
}

std::size_t TranscriptPrinter::columns() const {
  return static_cast<std::size_t>(usableColumns());
}

int TranscriptPrinter::usableColumns() const {
  return style_.isLive() ? TerminalStyle::usable(style_.size().columns) : 1000;
}

std::vector<std::string> TranscriptPrinter::linesOf(std::string_view text, std::size_t most) const {
  return isReview ? text::visibleLines(text::trimmed(text)) : boundedLines(text, most);
}

void TranscriptPrinter::remark(std::string_view text) {
  beginBlock(Block::other);
  line(style_.dim(text));
}

// ---- entries ------------------------------------------------------------------------------------

void TranscriptPrinter::introduced(const RunIntroduction& introduction) {
  resumeCommand_ = fmt::format("{} {}", introduction.resumeCommand,
                               introduction.conversation.threadID.text().substr(0, taskIDShown));
  remark(fmt::format("{} in {}", sanitized(introduction.runtime), sanitized(introduction.folder)));
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
  if (streamID_ == entry.id && entry.text.starts_with(streamText_)) {
    return textAdded(entry, std::string_view(entry.text).substr(streamText_.size()));
  }
  if (streamID_ == entry.id) beginBlock(Block::none);
  streamID_.clear();
  entryAdded(entry);
}

void TranscriptPrinter::textAdded(const ChatEntry& entry, std::string_view text) {
  if (streamID_ != entry.id) {
    endText();
    isTextLast_ = false;
    streamID_ = entry.id;
    stream_.emplace(style_, entry.kind == ChatEntryKind::thought ? AnswerStream::Kind::thought
                                                                 : AnswerStream::Kind::answer);
    // What stands further up decides how the rest is to be read.
    const bool hasMore = std::string_view(entry.text).ends_with(text);
    streamText_ = entry.text.substr(0, hasMore ? entry.text.size() - text.size() : 0);
    std::ignore = stream_->append(streamText_, columns());
    std::ignore = stream_->finish(columns());
  }
  streamText_ += text;
  showText(stream_->append(text, columns()));
}

void TranscriptPrinter::showUser(const ChatEntry& entry) {
  if (const auto earlier = std::exchange(outcome_, std::nullopt)) {
    showOutcome(*earlier);
    toldRun_ = earlier->id;
    remark("From the queue:");
    agentWasHeard_ = false;
    block_ = Block::none;
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
  const bool isHook = isHookEntry(entry);
  const std::string title = isHook ? onOneLine(*entry.title) : toolTitles_.best(entry);
  const std::string shown = toolLine(entry, title, style_, usableColumns());
  if (!hasEnded(entry.status.value_or("pending")) && !isReview) {
    openTools_.insert_or_assign(entry.id, shown);
    return status(fmt::format("▸ {}", title));
  }
  openTools_.erase(entry.id);
  beginBlock(Block::tool);
  line(shown);
  if (!isHook) return;
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
    if (isNews) lines.push_back(planLine(plan[i], style_, usableColumns()));
  }
  if (lines.empty()) return;
  beginBlock(Block::other);
  if (!hasSameSteps) line(style_.bold("Plan"));
  for (const auto& each : lines) line(each);
}

// ---- the run ------------------------------------------------------------------------------------

void TranscriptPrinter::promptQueued(std::size_t waiting) {
  remark(waiting == 1 ? "Queued: it is sent when this turn has gone well."
                      : fmt::format("Queued: {} prompts wait now.", waiting));
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
  // A prompt that was stopped before its run began leaves the run before it as the last one.
  if (run && run->id != toldRun_) {
    showOutcome(*run);
  } else if (stopIsUntold_) {
    beginBlock(Block::other);
    line(style_.yellow(fmt::format("■ {}", stoppedText)));
  } else if (!run) {
    return;
  }
  if (!resumeCommand_.empty())
    line(style_.dim(fmt::format("To go on: {} \"...\"", resumeCommand_)));
}

void TranscriptPrinter::showOutcome(const RunRecord& run) {
  stopIsUntold_ = false;
  for (const auto& [id, text] : std::exchange(openTools_, {})) {
    beginBlock(Block::tool);
    line(text);
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
