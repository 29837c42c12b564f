#include "shell/terminal/transcript_printer.h"

#include <fmt/format.h>

#include "platform/text/text.h"
#include "records/values/project_hook.h"
#include "shell/terminal/activity_lines.h"
#include "shell/terminal/answer_lines.h"
#include "shell/terminal/permission_prompt.h"
#include "shell/terminal/terminal_text.h"

namespace vantrell::shell {

namespace {

constexpr std::size_t promptLinesShown = 6;
constexpr std::size_t systemLinesShown = 40;
constexpr std::size_t hookLinesShown = 12;
constexpr std::size_t taskIDShown = 8;  // characters, plenty to tell tasks apart
constexpr std::string_view stoppedText = "Stopped by you.";
constexpr std::string_view clearLine = "\r\x1b[K";
constexpr std::string_view thoughtBar = "│ ";
/// Nobody reads faster, and a layout may cost a parse of the last block.
constexpr std::chrono::milliseconds betweenLayouts{30};

}  // namespace

// ---- blocks -------------------------------------------------------------------------------------

void TranscriptPrinter::put(std::string_view text) {
  if (text.empty()) return;
  clearStatus();
  write_(withLooksOnly(text));
}

void TranscriptPrinter::clearStatus() {
  if (std::exchange(statusShown_, false)) write_(clearLine);
}

void TranscriptPrinter::endLine() {
  endAnswer();
  if (!std::exchange(atLineStart_, true)) put("\n");
}

void TranscriptPrinter::beginBlock(Block block) {
  endLine();
  const bool joins = block == Block::tool && block_ == Block::tool;
  if (block_ != Block::none && !joins) put("\n");
  block_ = block;
  streaming_.clear();
  isAnswerOpen_ = false;
  drawn_.reset();
}

void TranscriptPrinter::showStatus(std::string_view text) {
  if (!style_.isLive() || !atLineStart_) return;
  put(style_.dim(fitted(onOneLine(text), usableColumns())));
  write_("\r");
  statusShown_ = true;
}

void TranscriptPrinter::line(std::string_view styled) {
  put(fmt::format("{}\n", styled));
}

int TranscriptPrinter::usableColumns() const {
  return style_.isLive() ? TerminalStyle::usable(style_.size().columns) : 1000;
}

std::vector<std::string> TranscriptPrinter::linesOf(std::string_view text, std::size_t most) const {
  if (!isReview) return boundedLines(text, most);
  std::vector<std::string> lines;
  const std::string clean = sanitized(text::trimmed(text));
  for (const auto each : text::split(clean, '\n')) lines.emplace_back(each);
  return lines;
}

void TranscriptPrinter::draw(std::string_view id, Block block,
                             const std::vector<std::string>& lines) {
  endAnswer();
  const auto size = style_.size();
  const bool mayDrawOver =
      drawn_ && drawn_->entryID == id && drawn_->columns == size.columns && atLineStart_;
  if (mayDrawOver) {
    clearStatus();
    write_(fmt::format("\x1b[{}A\r\x1b[J", drawn_->rows));
  } else {
    beginBlock(block);
  }
  for (const auto& each : lines) line(each);
  drawn_.reset();
  const int rows = static_cast<int>(lines.size());
  if (style_.isLive() && rows < size.rows) drawn_ = Drawn{std::string(id), rows, size.columns};
}

void TranscriptPrinter::remark(std::string_view text) {
  beginBlock(Block::other);
  line(style_.dim(text));
}

// ---- entries ------------------------------------------------------------------------------------

void TranscriptPrinter::introduced(const RunIntroduction& introduction) {
  resumeCommand_ = fmt::format("{} {}", introduction.resumeCommand,
                               introduction.conversation.threadID.text().substr(0, taskIDShown));
  beginBlock(Block::other);
  line(style_.dim(fmt::format("{} in {}", introduction.runtime, sanitized(introduction.folder))));
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
      if (isReview && style_.isLive()) return showAnswer(entry);
      [[fallthrough]];
    case ChatEntryKind::thought: return stream(entry, entry.text);
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
  if (answer_ && answerID_ == entry.id) {
    if (entry.text.starts_with(answerText_)) {
      return textAdded(entry, std::string_view(entry.text).substr(answerText_.size()));
    }
    endLine();
    answer_.reset();
  }
  streaming_.clear();
  entryAdded(entry);
}

void TranscriptPrinter::textAdded(const ChatEntry& entry, std::string_view text) {
  stream(entry, text);
}

void TranscriptPrinter::transcriptReplaced(const Transcript&) {
  // The person knows the earlier entries; their going on was announced at the start.
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

void TranscriptPrinter::showAnswer(const ChatEntry& entry) {
  beginBlock(Block::text);
  const auto columns = static_cast<std::size_t>(usableColumns());
  for (const auto& each : answerLines(entry.text, style_, columns)) line(each);
}

void TranscriptPrinter::streamAnswer(const ChatEntry& entry, std::string_view text) {
  if (!answer_ || answerID_ != entry.id) {
    endLine();
    isAnswerOpen_ = false;
    answerID_ = entry.id;
    answer_.emplace(style_);
    answerText_.clear();
    if (std::string_view(entry.text).ends_with(text)) {
      // What stands further up decides how the rest is to be read.
      answerText_ = entry.text.substr(0, entry.text.size() - text.size());
      answer_->append(answerText_);
      (void)answer_->finish(static_cast<std::size_t>(usableColumns()));
    }
  }
  answerText_ += text;
  answer_->append(text);
  hasNewText_ = true;
  if (!nextLayout_.isActive()) layOutAnswer();
}

void TranscriptPrinter::layOutAnswer() {
  if (!std::exchange(hasNewText_, false)) return;
  putAnswer(answer_->lines(static_cast<std::size_t>(usableColumns())));
  if (queue_) nextLayout_ = queue_->after(betweenLayouts, [this] { layOutAnswer(); });
}

/// Its block begins with the first of it that can be seen.
void TranscriptPrinter::putAnswer(std::string_view lines) {
  if (lines.empty()) return;
  if (!std::exchange(isAnswerOpen_, true)) {
    if (!std::exchange(atLineStart_, true)) put("\n");
    if (block_ != Block::none) put("\n");
    block_ = Block::text;
    streaming_.clear();
    drawn_.reset();
  }
  put(lines);
}

void TranscriptPrinter::endAnswer() {
  nextLayout_.cancel();
  hasNewText_ = false;
  if (answer_) putAnswer(answer_->finish(static_cast<std::size_t>(usableColumns())));
}

void TranscriptPrinter::stream(const ChatEntry& entry, std::string_view text) {
  if (entry.kind == ChatEntryKind::assistant && style_.isLive()) return streamAnswer(entry, text);
  if (streaming_ != entry.id) {
    beginBlock(Block::text);
    streaming_ = entry.id;
    // A block that begins with empty lines would only tear the page.
    text.remove_prefix(std::min(text.find_first_not_of("\r\n"), text.size()));
  }
  const std::string clean = sanitized(text);
  if (entry.kind != ChatEntryKind::thought) {
    put(clean);
    if (!clean.empty()) atLineStart_ = clean.back() == '\n';
    return;
  }
  const auto lines = text::split(clean, '\n');
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (i > 0) {
      put("\n");
      atLineStart_ = true;
    }
    if (lines[i].empty() && i + 1 == lines.size()) break;
    const bool opensLine = std::exchange(atLineStart_, false);
    put(style_.dim(fmt::format("{}{}", opensLine ? thoughtBar : "", lines[i])));
  }
}

void TranscriptPrinter::showHook(const ChatEntry& entry) {
  std::vector<std::string> lines = {
      toolLine(entry, onOneLine(*entry.title), style_, usableColumns())};
  for (const auto& each : linesOf(entry.text, hookLinesShown)) {
    lines.push_back(style_.dim(fmt::format("    {}", each)));
  }
  draw(entry.id, Block::tool, lines);
}

void TranscriptPrinter::showTool(const ChatEntry& entry) {
  if (isHookEntry(entry)) return showHook(entry);
  const std::string status = entry.status.value_or("pending");
  const std::string title = toolTitles_.best(entry);
  const std::string text = toolLine(entry, title, style_, usableColumns());
  const auto known = openTools_.find(entry.id);
  const bool isNew = known == openTools_.end();
  const bool isLast = drawn_ && drawn_->entryID == entry.id;
  if (hasEnded(status)) {
    if (!isNew) openTools_.erase(known);
    return draw(entry.id, Block::tool, {text});
  }
  openTools_.insert_or_assign(entry.id, text);
  // A line that cannot change comes only once, at the end state.
  if (!style_.isLive() && !isReview) return;
  if (isNew || isLast) return draw(entry.id, Block::tool, {text});
  if (status == "in_progress") showStatus(fmt::format("▸ {}", title));
}

// ---- the plan -----------------------------------------------------------------------------------

void TranscriptPrinter::planReplaced(const std::vector<PlanEntry>& plan) {
  if (plan == plan_) return;
  agentWasHeard_ = true;
  endAnswer();
  const auto earlier = std::exchange(plan_, plan);
  const bool sameSteps =
      std::ranges::equal(earlier, plan, {}, &PlanEntry::content, &PlanEntry::content);
  const bool isLast = drawn_ && drawn_->entryID.empty();
  if (sameSteps && !isLast) {
    // The list has scrolled away: only the steps that are done are news.
    std::vector<std::string> done;
    for (std::size_t i = 0; i < plan.size(); ++i) {
      const bool isNews = plan[i].status != earlier[i].status && hasEnded(plan[i].status);
      if (isNews) done.push_back(planLine(plan[i], style_, usableColumns()));
    }
    if (done.empty()) return;
    beginBlock(Block::plan);
    for (const auto& each : done) line(each);
    return;
  }
  if (plan.empty()) return;
  std::vector<std::string> lines = {style_.bold("Plan")};
  for (const auto& entry : plan) lines.push_back(planLine(entry, style_, usableColumns()));
  draw("", Block::plan, lines);
}

// ---- questions and the end ----------------------------------------------------------------------

void TranscriptPrinter::permissionAsked(const PermissionRequest& request) {
  beginBlock(Block::other);
  for (const auto& each : permissionLines(request, style_)) line(each);
  permissionStillOpen(request);
}

void TranscriptPrinter::permissionStillOpen(const PermissionRequest& request) {
  if (!showsAnswerPrompt) return;
  endLine();
  put(style_.bold(answerPrompt(request)));
  atLineStart_ = false;
}

void TranscriptPrinter::permissionAnswered(const PermissionOption* option) {
  endLine();
  line(style_.dim(fmt::format("→ {}", option ? onOneLine(option->name) : "Refused")));
}

void TranscriptPrinter::lineTyped() {
  atLineStart_ = true;
  drawn_.reset();  // it has moved up
}

void TranscriptPrinter::promptQueued(std::size_t waiting) {
  remark(waiting == 1 ? "Queued: it is sent when this turn has gone well."
                      : fmt::format("Queued: {} prompts wait now.", waiting));
}

void TranscriptPrinter::interrupted() {
  if (!style_.isLive()) return;
  if (atLineStart_) {
    statusShown_ = false;
    write_(clearLine);
  } else {
    endLine();
  }
  drawn_.reset();
}

void TranscriptPrinter::runChanged(const RunRecord& run) {
  const bool isUnderWay =
      run.status == RunRecordStatus::starting || run.status == RunRecordStatus::running;
  if (isUnderWay && run.statusMessage) showStatus(*run.statusMessage);
  if (!isActive(run.status)) outcome_ = run;
}

void TranscriptPrinter::livenessChanged(const RunRecord& run) {
  beginBlock(Block::other);
  line(style_.yellow(fmt::format("• {}", onOneLine(run.statusMessage.value_or("")))));
}

void TranscriptPrinter::ended(const RunRecord* run) {
  endLine();
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
  endLine();
  stopIsUntold_ = false;
  for (const auto& [id, text] : std::exchange(openTools_, {})) {
    // On a live terminal the line stands already.
    if (style_.isLive()) continue;
    beginBlock(Block::tool);
    line(text);
  }
  const std::string words = onOneLine(run.statusMessage.value_or(""));
  beginBlock(Block::other);
  if (run.status == RunRecordStatus::completed && !agentWasHeard_) {
    // Some runtimes end a turn that failed for them as if it had gone well.
    line(style_.yellow("• The agent ended its turn without a word."));
  }
  switch (run.status) {
    case RunRecordStatus::completed: line(style_.green(fmt::format("✓ {}", words))); break;
    case RunRecordStatus::cancelled: line(style_.yellow(fmt::format("■ {}", words))); break;
    default: line(style_.red(fmt::format("✗ {}", words)));
  }
}

}  // namespace vantrell::shell
