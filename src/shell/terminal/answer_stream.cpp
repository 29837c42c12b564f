#include "shell/terminal/answer_stream.h"

#include <algorithm>
#include <fmt/format.h>

#include "platform/text/text.h"
#include "platform/text/utf8.h"
#include "presentation/response_formatting.h"
#include "presentation/white_space.h"
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
// Codes of looks.
constexpr std::string_view bold = "1";
constexpr std::string_view dim = "2";

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

/// What a line of an answer is: the text of it, and what stands before its rows.
struct Line {
  void operator()(const B::Heading&) { look = bold; }
  void operator()(const B::Bullet& item) { setItem("•", item.depth); }
  void operator()(const B::Numbered& item) { setItem(fmt::format("{}.", item.number), item.depth); }
  void operator()(const B::Checklist& item) { setItem(item.checked ? "✓" : "○", item.depth); }
  void operator()(const B::Quote&) {
    first = others = bar;
    look = dim;
  }
  void operator()(const B::Divider&) { isRule = true; }
  void operator()(const auto&) {}
  void setItem(const std::string& mark, int depth) {
    first = std::string(static_cast<std::size_t>(depth) * columnsPerDepth, ' ') + mark + " ";
    others = std::string(text::columnCount(first), ' ');
  }

  InlineText shown;
  std::string first, others;
  std::string_view look;
  bool isRule = false;
};

Line lineOf(std::string_view source) {
  Line line;
  std::vector<ResponseBlock> blocks;
  ResponseFormatting::appendBlocks(source, blocks);
  if (blocks.empty()) return line;
  line.shown = withoutMarks(blocks.front().text);
  std::visit(line, blocks.front().kind);
  return line;
}

}  // namespace

std::string AnswerStream::append(std::string_view text, std::size_t columns) {
  columns_ = std::max(columns, narrowest);
  for (std::size_t end; (end = text.find('\n')) != text.npos; text.remove_prefix(end + 1)) {
    line_ += text.substr(0, end);
    endLine();
  }
  line_ += text;
  return std::exchange(out_, {});
}

std::string AnswerStream::finish(std::size_t columns) {
  columns_ = std::max(columns, narrowest);
  if (!line_.empty()) endLine();
  endTable();
  isBegun_ = false;
  blankLines_ = 0;
  return std::exchange(out_, {});
}

void AnswerStream::endLine() {
  if (line_.ends_with('\r')) line_.pop_back();
  const std::string line = sanitized(std::exchange(line_, {}));
  const bool isLaidOut = style_.isLive() && kind_ == Kind::answer;
  const std::string_view trimmed = white::trimmedOfBlanks(line);
  if (isLaidOut && trimmed.starts_with(fence)) {
    endTable();
    isInCode_ = !isInCode_;
    const auto language = white::trimmedOfBlanks(trimmed.substr(fence.size()));
    if (isInCode_ && !language.empty()) put(style_.dim(fmt::format("{}{}", codeIndent, language)));
    return;
  }
  if (isInCode_ && !trimmed.empty()) return put(style_.cyan(std::string(codeIndent) + line));
  const bool isRow = isLaidOut && !isInCode_ && trimmed.contains('|');
  const bool goesOn = table_.size() == 1 ? isSeparator(trimmed) : isRow;
  if (!goesOn) endTable();
  if (goesOn || isRow) return table_.push_back(line);
  if (!trimmed.empty()) return addText(line);
  blankLines_ = isLaidOut && !isInCode_ ? 1 : blankLines_ + 1;
}

/// What was kept as a table, or as one that might have begun.
void AnswerStream::endTable() {
  if (table_.empty()) return;
  const auto lines = std::exchange(table_, {});
  std::vector<ResponseBlock> blocks;
  ResponseFormatting::appendBlocks(text::joined(lines, "\n"), blocks);
  if (!std::holds_alternative<ResponseTable>(blocks.front().kind)) {
    for (const auto& line : lines) addText(line);
    return;
  }
  for (const auto& block : blocks) {
    const auto* table = std::get_if<ResponseTable>(&block.kind);
    const std::string text = table ? tableText(*table, style_, columns_) : block.text + "\n";
    put(std::string_view(text).substr(0, text.size() - 1));
  }
}

/// Wrapped where it is laid out.
void AnswerStream::addText(std::string_view source) {
  Line line;
  if (kind_ == Kind::thought) {
    line.shown.text = source;
    line.first = line.others = bar;
    line.look = dim;
  }
  if (!style_.isLive()) return put(line.first + std::string(source));
  if (kind_ == Kind::answer) line = lineOf(source);
  if (line.isRule) {
    std::string rule;
    for (std::size_t i = 0; i < std::min(columns_, widestRule); ++i) rule += "─";
    return put(style_.dim(rule));
  }
  const auto& [text, looks] = line.shown;
  std::size_t at = 0;
  do {
    InlineText before{.text = at == 0 ? line.first : line.others, .looks = {}};
    const auto room = columns_ - std::min(columns_ - 1, text::columnCount(before.text));
    const auto part = breakLine(std::string_view(text).substr(at), room);
    put(styled(before, line.look) + styled(line.shown, line.look, at, at + part.end));
    at += part.next;
  } while (at < text.size());
}

void AnswerStream::put(std::string_view line) {
  if (isBegun_) out_.append(blankLines_, '\n');
  blankLines_ = 0;
  isBegun_ = true;
  out_.append(line).append("\n");
}

}  // namespace vantrell::shell
