#include "shell/terminal/answer_stream.h"

#include "platform/text/utf8.h"
#include "presentation/white_space.h"
#include "shell/terminal/answer_lines.h"
#include "shell/terminal/terminal_text.h"

namespace vantrell::shell {

namespace {

/// The beginning of a line of so many bytes says what the line is. No shorter one fills a row.
constexpr std::size_t enoughToTell = 20;
constexpr std::string_view fence = "```";

/// Without a character that the end of the text may have cut in two, and without a return that a
/// line feed may follow.
std::size_t wholeCharacters(std::string_view text) {
  if (text.ends_with('\r')) return text.size() - 1;
  std::size_t at = text.size();
  while (at > 0 && text.size() - at < 3 && utf8::isContinuation(text[at - 1])) --at;
  if (at == 0 || static_cast<unsigned char>(text[at - 1]) < 0xC0) return text.size();
  const auto last = utf8::sequenceAt(text.data() + at - 1, text.data() + text.size());
  return last.valid ? text.size() : at - 1;
}

}  // namespace

/// How much of what is waiting can be laid out: whole lines, except a row that the next line may
/// make the headings of a table, and the beginning of a line of text.
std::size_t AnswerStream::decided(bool isAll) {
  const std::string_view text = waiting_;
  std::size_t at = 0;
  const auto enterLine = [&](std::string_view line) {
    if (!isInLine_ && line.starts_with(fence)) isInCode_ = !isInCode_;
  };
  for (std::size_t end; (end = text.find('\n', at)) != text.npos; at = end + 1) {
    const auto line = white::trimmedOfBlanks(text.substr(at, end - at));
    const bool isRow = !isInLine_ && !isInCode_ && line.contains('|') && !line.starts_with(fence) &&
                       line.find_first_not_of("|-: \t") != line.npos;
    if (isRow && !isAll && !text.substr(end + 1).contains('\n')) return at;
    enterLine(line);
    isAfterBlank_ = !isInLine_ && line.empty();
    isInLine_ = false;
  }
  if (at == text.size()) return at;
  const auto line = white::trimmedOfBlanks(text.substr(at));
  const bool isText =
      line.size() >= enoughToTell && !isInCode_ && !line.starts_with(fence) && !line.contains('|');
  if (!isInLine_ && !isText && !isAll) return at;
  enterLine(line);
  isInLine_ = true;
  isAfterBlank_ = false;
  return isAll ? text.size() : at + wholeCharacters(text.substr(at));
}

std::string AnswerStream::take(std::size_t columns, bool isAll) {
  const std::size_t size = decided(isAll);
  blocks_.append(sanitized(std::string_view(waiting_).substr(0, size)));
  waiting_.erase(0, size);
  const auto& blocks = blocks_.blocks();
  if (block_ >= blocks.size() && !blocks.empty()) {
    // The last block has turned out to be text of the one before.
    block_ = blocks.size() - 1;
    isBegun_ = false;
  }
  std::string out;
  for (; block_ < blocks.size(); ++block_) {
    const bool isLast = block_ + 1 == blocks.size();
    const ResponseBlock& block = blocks[block_];
    if (std::exchange(kind_, block.kind.index()) != block.kind.index()) isBegun_ = false;
    if (!isBegun_) from_ = shown_ = 0;
    const std::string lines = linesOf(block, columns, isLast && !isAll && !isAfterBlank_);
    if (!lines.empty()) {
      const bool isApart = !isBegun_ && !isFirst_ && standsApart(block, blocks[block_ - 1]);
      out.append(isApart ? "\n" : "").append(lines);
      isBegun_ = true;
      isFirst_ = false;
    }
    if (isLast) break;
    isBegun_ = false;
  }
  if (isAll) {
    isFirst_ = true;
    if (block_ < blocks.size()) from_ = shown_ = endOf(blocks[block_]);
  }
  return out;
}

/// What of a block was not given out. While it is open, its last line may go on.
std::string AnswerStream::linesOf(const ResponseBlock& block, std::size_t columns, bool isOpen) {
  const bool isTable = std::holds_alternative<ResponseTable>(block.kind);
  const bool isParagraph = std::holds_alternative<ResponseBlock::Paragraph>(block.kind);
  if (isOpen && isTable) return "";
  const auto lines = blockLines(block, from_, isBegun_, style_, columns);
  const bool lastGoesOn = isOpen && (isInLine_ || isParagraph);
  std::string out;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const bool isComplete = lines[i].isSettled && i + 1 < lines.size();
    if (!isComplete && lastGoesOn) break;
    if (isBegun_ && lines[i].end <= shown_) continue;
    out.append(lines[i].text).append("\n");
    shown_ = lines[i].end;
    if (lines[i].endsPlain) from_ = shown_;
  }
  return out;
}

}  // namespace vantrell::shell
