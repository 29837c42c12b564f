#include "shell/terminal/answer_stream.h"

#include <algorithm>
#include <fmt/format.h>

#include "platform/text/text.h"
#include "platform/text/utf8.h"
#include "presentation/response_formatting.h"
#include "presentation/white_space.h"
#include "shell/terminal/inline_marks.h"
#include "shell/terminal/terminal_text.h"
#include "shell/terminal/text_table.h"

namespace vantrell::shell {

namespace {

using B = ResponseBlock;

constexpr std::size_t columnsPerDepth = 2;
constexpr std::size_t narrowest = 20;
constexpr std::size_t leastOfCell = 5;
constexpr std::size_t widestRule = 40;
constexpr std::string_view codeIndent = "  ";
constexpr std::string_view bar = "│ ";
constexpr std::string_view fence = "```";
constexpr std::size_t columnsPerTab = 8;

/// How much of a text goes on one line, and where the next one begins.
struct Break {
  std::size_t end;
  std::size_t next;
};

Break breakLine(std::string_view text, std::size_t columns) {
  const std::size_t fits = text::firstColumns(text, columns).size();
  if (fits == text.size()) return {fits, fits};
  std::size_t end = text.rfind(' ', fits);
  if (end == text.npos || text.find_first_not_of(' ') >= end) {
    // A character wider than the line would never leave it.
    end = fits > 0 ? fits : utf8::sequenceAt(text.data(), text.data() + text.size()).length;
  }
  const std::size_t next = std::min(text.find_first_not_of(' ', end), text.size());
  return {text.find_last_not_of(' ', end - 1) + 1, next};
}

/// Without a character that the end of the text may have cut in two.
std::size_t wholeCharacters(std::string_view text) {
  std::size_t at = text.size();
  while (at > 0 && text.size() - at < 3 && utf8::isContinuation(text[at - 1])) --at;
  if (at == 0 || static_cast<unsigned char>(text[at - 1]) < 0xC0) return text.size();
  const auto last = utf8::sequenceAt(text.data() + at - 1, text.data() + text.size());
  return last.valid ? text.size() : at - 1;
}

std::string withoutTabs(std::string_view line) {
  std::string shown;
  const auto parts = text::split(line, '\t');
  for (std::size_t i = 0; i < parts.size(); ++i) {
    if (i > 0) shown.append(columnsPerTab - text::columnCount(shown) % columnsPerTab, ' ');
    shown += parts[i];
  }
  return shown;
}

std::string rule(std::size_t columns) {
  std::string all;
  for (std::size_t i = 0; i < std::min(columns, widestRule); ++i) all += "─";
  return all;
}

bool isSeparator(std::string_view line) {
  return line.contains('-') && line.find_first_not_of("|-: \t") == line.npos;
}

std::string tableText(const ResponseTable& table, const TerminalStyle& style, std::size_t columns) {
  std::vector<std::string> headings;
  for (const auto& header : table.headers) headings.push_back(onOneLine(header));
  std::vector<TableColumn> shownColumns;
  for (const auto& heading : headings) {
    shownColumns.push_back({.heading = heading, .least = leastOfCell});
  }
  TextTable shown(std::move(shownColumns));
  for (const auto& row : table.rows) {
    std::vector<TableCell> cells;
    for (const auto& cell : row) cells.push_back({.text = cell, .mayHaveMarks = true});
    shown.add(std::move(cells));
  }
  return shown.text(style, columns);
}

}  // namespace

/// What a line of the source is: the text of it, and what stands before its rows.
struct AnswerStream::Beginning {
  explicit Beginning(std::string_view line) {
    std::vector<ResponseBlock> blocks;
    ResponseFormatting::appendBlocks(line, blocks);
    if (blocks.empty()) return;
    text = std::move(blocks.front().text);
    std::visit(*this, blocks.front().kind);
  }

  void operator()(const B::Heading&) { look = &TerminalStyle::bold; }
  void operator()(const B::Bullet& item) { setItem("•", item.depth); }
  void operator()(const B::Numbered& item) { setItem(fmt::format("{}.", item.number), item.depth); }
  void operator()(const B::Checklist& item) { setItem(item.checked ? "✓" : "○", item.depth); }
  void operator()(const B::Quote&) {
    first = others = bar;
    look = &TerminalStyle::dim;
  }
  void operator()(const B::Divider&) { isRule = true; }
  void operator()(const auto&) {}
  void setItem(const std::string& mark, int depth) {
    const std::string indent(static_cast<std::size_t>(depth) * columnsPerDepth, ' ');
    first = indent + mark + " ";
    others = indent + std::string(text::columnCount(mark) + 1, ' ');
  }

  std::string text, first, others;
  TerminalStyle::Look look = nullptr;
  bool isRule = false;
};

std::string AnswerStream::append(std::string_view text, std::size_t columns) {
  if (!style_.isLive()) return asItComes(text);
  columns_ = std::max(columns, narrowest);
  for (std::size_t end; (end = text.find('\n')) != text.npos; text.remove_prefix(end + 1)) {
    line_ += text.substr(0, end);
    endLine();
  }
  line_ += text;
  const bool isText = isMidLine_ || kind_ == Kind::thought ||
                      (table_.empty() && !isInCode_ && !line_.contains('|') &&
                       !white::trimmedOfBlanks(line_).starts_with(fence));
  if (isText && line_.size() > columns_) {
    // Blanks at the end count if more follows.
    const auto size = white::trimEnd(line_, 0, wholeCharacters(line_), white::blankAt);
    const std::string cut = line_.substr(size);
    line_.resize(line_.size() - cut.size());
    addLines(sanitized(line_), false);
    line_ += cut;
  }
  return std::exchange(out_, {});
}

std::string AnswerStream::finish(std::size_t columns) {
  if (!style_.isLive()) return std::exchange(isMidLine_, false) ? "\n" : "";
  columns_ = std::max(columns, narrowest);
  if (!line_.empty()) endLine();
  endTable();
  isBegun_ = isMidLine_ = false;
  blankLines_ = 0;
  return std::exchange(out_, {});
}

std::string AnswerStream::asItComes(std::string_view text) {
  // One that begins with empty lines would only tear the page.
  if (!isBegun_) text.remove_prefix(std::min(text.find_first_not_of("\r\n"), text.size()));
  std::string shown;
  while (!text.empty()) {
    const std::string_view part = text.substr(0, text.find('\n'));
    if (kind_ == Kind::thought && !std::exchange(isMidLine_, true)) shown += bar;
    isMidLine_ = isBegun_ = true;
    shown += sanitized(part);
    text.remove_prefix(part.size());
    if (text.empty()) break;
    shown += '\n';
    isMidLine_ = false;
    text.remove_prefix(1);
  }
  return shown;
}

void AnswerStream::endLine() {
  if (line_.ends_with('\r')) line_.pop_back();
  const std::string line = sanitized(std::exchange(line_, {}));
  const std::string_view trimmed = white::trimmedOfBlanks(line);
  if (isMidLine_) {
    if (!trimmed.empty()) addLines(trimmed, true);
    isMidLine_ = false;
    return;
  }
  if (kind_ == Kind::answer && trimmed.starts_with(fence)) {
    endTable();
    isInCode_ = !isInCode_;
    const auto language = white::trimmedOfBlanks(trimmed.substr(fence.size()));
    if (isInCode_ && !language.empty()) put(style_.dim(fmt::format("{}{}", codeIndent, language)));
    return;
  }
  if (isInCode_ && !trimmed.empty()) {
    const auto end = white::trimEnd(line, 0, line.size(), white::blankAt);
    return put(style_.cyan(std::string(codeIndent) + withoutTabs(line.substr(0, end))));
  }
  if (kind_ == Kind::answer && !isInCode_) {
    const bool isRow = trimmed.contains('|');
    const bool goesOn = table_.size() == 1 ? isSeparator(trimmed) : isRow;
    if (!goesOn) endTable();
    if (goesOn || isRow) return table_.push_back(line);
  }
  if (trimmed.empty()) {
    blankLines_ = isInCode_ ? blankLines_ + 1 : 1;
    return;
  }
  addLines(line, true);
  isMidLine_ = false;
}

/// What was kept as a table, or as one that might have begun.
void AnswerStream::endTable() {
  if (table_.empty()) return;
  const auto lines = std::exchange(table_, {});
  std::vector<ResponseBlock> blocks;
  ResponseFormatting::appendBlocks(text::joined(lines, "\n"), blocks);
  if (std::holds_alternative<ResponseTable>(blocks.front().kind)) {
    for (const auto& block : blocks) {
      const auto* table = std::get_if<ResponseTable>(&block.kind);
      const std::string text = table ? tableText(*table, style_, columns_) : block.text + "\n";
      put(std::string_view(text).substr(0, text.size() - 1));
    }
    return;
  }
  for (const auto& line : lines) {
    addLines(line, true);
    isMidLine_ = false;
  }
}

/// The rows of a line. Of one that is open the last row may go on, and a mark without a partner may
/// find one: what cannot change is given out, up to a place outside of bold and code.
void AnswerStream::addLines(std::string_view source, bool isWhole) {
  std::string text(source), first = indent_;
  if (!isMidLine_) {
    first = indent_ = kind_ == Kind::thought ? bar : "";
    look_ = kind_ == Kind::thought ? &TerminalStyle::dim : nullptr;
    if (kind_ == Kind::answer) {
      Beginning beginning(source);
      if (beginning.isRule) return isWhole ? put(style_.dim(rule(columns_))) : void();
      text = std::move(beginning.text);
      first = std::move(beginning.first);
      indent_ = std::move(beginning.others);
      look_ = beginning.look;
    }
  }
  const InlineText shown = kind_ == Kind::thought ? asWritten(text) : withoutMarks(text);
  const auto around = look_ == &TerminalStyle::bold  ? InlineText::Around::bold
                      : look_ == &TerminalStyle::dim ? InlineText::Around::dim
                                                     : InlineText::Around::plain;
  if (shown.text.empty() && isWhole) put(look_ ? (style_.*look_)(first) : first);
  std::vector<std::string> rows;
  for (std::size_t at = 0; at < shown.text.size();) {
    const std::string& prefix = isMidLine_ || !rows.empty() ? indent_ : first;
    const auto room = columns_ - std::min(columns_ - 1, text::columnCount(prefix));
    const auto part = breakLine(std::string_view(shown.text).substr(at), room);
    const auto next = shown.at(at + part.next);
    const bool isLast = at + part.next == shown.text.size();
    if (!isWhole && (isLast || at + part.next + next.removed >= shown.settled)) break;
    const std::string row = prefix + shown.styled(around, at, at + part.end);
    rows.push_back(look_ ? (style_.*look_)(row) : row);
    at += part.next;
    if (isWhole ? !isLast : next.isBold || next.isCode) continue;
    for (const auto& each : std::exchange(rows, {})) put(each);
    isMidLine_ = true;
    if (!isWhole) line_ = text.substr(at + next.removed);
  }
}

void AnswerStream::put(std::string_view line) {
  if (isBegun_) out_.append(blankLines_, '\n');
  blankLines_ = 0;
  isBegun_ = true;
  out_.append(line).append("\n");
}

std::vector<std::string> answerLines(std::string_view text, const TerminalStyle& style,
                                     std::size_t columns) {
  AnswerStream stream(style);
  std::string all = stream.append(ResponseFormatting::structureDenseResponse(text), columns);
  all += stream.finish(columns);
  std::vector<std::string> lines;
  for (const auto line : text::split(all, '\n')) lines.emplace_back(line);
  lines.pop_back();
  return lines;
}

}  // namespace vantrell::shell
