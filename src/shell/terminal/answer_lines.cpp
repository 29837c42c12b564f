#include "shell/terminal/answer_lines.h"

#include <algorithm>
#include <fmt/format.h>

#include "platform/text/text.h"
#include "shell/terminal/inline_marks.h"
#include "shell/terminal/terminal_pieces.h"
#include "shell/terminal/terminal_text.h"
#include "shell/terminal/text_table.h"

namespace vantrell::shell {

namespace {

using B = ResponseBlock;

constexpr std::size_t columnsPerDepth = 2;
constexpr std::size_t narrowest = 20;
constexpr std::size_t leastOfCell = 5;
constexpr std::size_t widestRule = 40;
constexpr std::size_t codeIndent = 2;
constexpr std::size_t columnsPerTab = 8;

/// Items stand close together, and so do lines of one quote; everything else stands apart.
bool isListItem(const B& block) {
  return std::holds_alternative<B::Bullet>(block.kind) ||
         std::holds_alternative<B::Numbered>(block.kind) ||
         std::holds_alternative<B::Checklist>(block.kind);
}

bool standsApart(const B& block, const B& before) {
  const bool isQuote =
      std::holds_alternative<B::Quote>(block.kind) && std::holds_alternative<B::Quote>(before.kind);
  return !isQuote && !(isListItem(block) && isListItem(before));
}

/// Part of a text that stands on one line; `begin` is where it begins in the text.
struct TextLine {
  InlineText shown;
  std::size_t begin;
  std::size_t readFrom;
};

/// Breaks a text into lines; its marks take up no room.
class LineBreaker {
 public:
  LineBreaker(std::string_view text, std::size_t from, InlineMarks marks)
      : text_(text), marks_(std::move(marks)) {
    const std::string_view rest = text::trimmed(text.substr(std::min(from, text.size())));
    begin_ = rest.empty() ? from : static_cast<std::size_t>(rest.data() - text.data());
    end_ = begin_ + rest.size();
    while (mark() && mark()->begin < begin_) {
      // Half of a mark may stand on the line before, from when it had no partner.
      begin_ = std::max(begin_, mark()->end);
      ++mark_;
    }
  }

  bool isAtEnd() const { return begin_ >= end_; }

  TextLine take(std::size_t columns) {
    TextLine line{.shown = {}, .begin = begin_, .readFrom = marks_.readingPoint(begin_)};
    if (mark_ > 0) line.shown.changes.push_back({0, marks_.marks()[mark_ - 1].after});
    std::string& shown = line.shown.text;
    std::size_t used = 0;
    std::size_t read = begin_;
    std::optional<End> lastBlank;
    PieceReader reader(rest(read));
    for (ShownPiece piece;;) {
      if (mark() && mark()->begin == read) {
        line.shown.changes.push_back({shown.size(), mark()->after});
        read = mark()->end;
        reader = PieceReader(rest(read));
        ++mark_;
        continue;
      }
      if (!reader.next(piece)) break;
      const bool isBlank = piece.shown == " " || piece.shown == "\t" || piece.shown == "\n";
      if (used + piece.columns > columns) {
        End end{shown.size(), read, mark_};
        if (shown.empty()) {
          // A character wider than the line would never leave it.
          end = {piece.shown.size(), read + piece.source.size(), mark_};
          shown = piece.shown;
        }
        breakAt(!isBlank && lastBlank ? *lastBlank : end, shown);
        return line;
      }
      if (isBlank) lastBlank = End{shown.size(), read, mark_};
      used += piece.columns;
      shown += isBlank ? " " : piece.shown;
      read += piece.source.size();
    }
    begin_ = end_;
    return line;
  }

 private:
  struct End {
    std::size_t shown;
    std::size_t source;
    std::size_t mark;
  };

  const InlineMark* mark() const {
    return mark_ < marks_.marks().size() ? &marks_.marks()[mark_] : nullptr;
  }
  std::string_view rest(std::size_t from) const { return text_.substr(from, end_ - from); }
  void breakAt(const End& end, std::string& shown) {
    shown.resize(end.shown);
    while (shown.ends_with(' ')) shown.pop_back();
    begin_ = std::min(text_.find_first_not_of(" \t\n", end.source), end_);
    mark_ = end.mark;
  }

  std::string_view text_;
  InlineMarks marks_;
  std::size_t begin_ = 0;  // of the next line
  std::size_t end_ = 0;
  std::size_t mark_ = 0;  // the next one
};

InlineText::Around around(AnswerLine::Look look) {
  if (look == &TerminalStyle::bold) return InlineText::Around::bold;
  return look == &TerminalStyle::dim ? InlineText::Around::dim : InlineText::Around::plain;
}

/// Where the next tab stop is, behind `column` of a line of code.
std::size_t tabStop(std::size_t column) {
  return (column / columnsPerTab + 1) * columnsPerTab;
}

/// Lays out one block after the other.
class Layout {
 public:
  using Stage = AnswerPlace::Stage;

  Layout(const TerminalStyle& style, std::size_t columns, TableMeasure& measure)
      : style_(style), columns_(std::max(columns, narrowest)), measure_(measure) {}

  void add(const B& block, const AnswerPlace& from) {
    block_ = &block;
    from_ = from;
    std::visit(*this, block.kind);
  }
  void addGap(std::size_t block) { lines_.push_back({.begin = {.block = block}}); }
  std::vector<AnswerLine> lines() && { return std::move(lines_); }

  void operator()(const B::Heading&) { addText("", "", columns_, &TerminalStyle::bold); }
  void operator()(const B::Bullet& item) { addItem("•", item.depth); }
  void operator()(const B::Numbered& item) { addItem(fmt::format("{}.", item.number), item.depth); }
  void operator()(const B::Checklist& item) { addItem(item.checked ? "✓" : "○", item.depth); }
  void operator()(const B::Paragraph&) { addText("", "", columns_, nullptr); }
  void operator()(const B::Quote&) { addText("│ ", "│ ", columns_ - 2, &TerminalStyle::dim); }
  void operator()(const B::Divider&) {
    if (from_.stage == Stage::end) return;
    std::string rule;
    for (std::size_t i = 0; i < std::min(columns_, widestRule); ++i) rule += "─";
    addLine(std::move(rule), &TerminalStyle::dim, 0);
  }
  void operator()(const B::Code& code) {
    const std::string_view text = block_->text;
    std::size_t offset = std::min(from_.offset, text.size());
    if (from_.stage == Stage::block && code.language) {
      addLine("  " + onOneLine(*code.language), &TerminalStyle::dim, 0);
      from_.stage = Stage::line;
    }
    if (from_.stage == Stage::end) {
      if (offset == text.size()) return;
      // The end of a line that has been shown says nothing new.
      if (text[offset] == '\n' && (offset == 0 || text[offset - 1] != '\n')) ++offset;
    }
    for (;;) {
      const std::size_t end = std::min(text.find('\n', offset), text.size());
      const auto line = text.substr(offset, end - offset);
      addLine(codeLine(line), line.empty() ? nullptr : &TerminalStyle::cyan, offset);
      if (end == text.size()) return;
      offset = end + 1;
    }
  }
  void operator()(const ResponseTable& table) {
    measure(table);
    std::vector<std::string> headings;
    for (const auto& header : table.headers) headings.push_back(onOneLine(header));
    std::vector<TableColumn> columns;
    for (std::size_t i = 0; i < headings.size(); ++i) {
      const bool isShown = from_.stage == Stage::block;
      columns.push_back({.heading = isShown ? std::string_view(headings[i]) : "",
                         .least = leastOfCell,
                         .wanted = measure_.widths[i]});
    }
    TextTable shown(std::move(columns));
    std::size_t row = from_.offset == 0 ? 0 : from_.offset - 1;
    for (std::size_t i = row; i < table.rows.size(); ++i) {
      std::vector<TableCell> cells;
      for (const auto& cell : table.rows[i]) cells.push_back({.text = cell, .mayHaveMarks = true});
      shown.add(std::move(cells));
    }
    std::string text = shown.text(style_, columns_);
    if (from_.stage != Stage::block && text.empty()) return;
    if (text.ends_with('\n')) text.pop_back();
    const auto lines = text::split(text, '\n');
    const bool hasHeadings = table.rows.size() - std::min(row, table.rows.size()) < lines.size();
    for (std::size_t i = 0; i < lines.size(); ++i) {
      addLine(std::string(lines[i]), nullptr, row + i + (hasHeadings ? 0 : 1));
    }
  }

 private:
  void addLine(std::string text, AnswerLine::Look look, std::size_t offset,
               std::size_t readFrom = 0) {
    AnswerPlace begin = from_;
    begin.offset = offset;
    begin.readFrom = readFrom;
    lines_.push_back({.text = std::move(text), .look = look, .begin = begin});
    from_.stage = Stage::line;
    from_.column = 0;
  }
  void addText(std::string_view first, std::string_view others, std::size_t room,
               AnswerLine::Look look) {
    const std::string_view text = block_->text;
    const bool isBegun = from_.stage != Stage::block;
    const std::size_t offset = std::min(from_.offset, text.size());
    if (isBegun && text::trimmed(text.substr(offset)).empty()) return;
    const std::size_t readFrom = std::min(from_.readFrom, offset);
    LineBreaker breaker(text, offset,
                        style_.isLive() ? InlineMarks(text, readFrom) : InlineMarks());
    do {
      const TextLine line = breaker.take(room);
      const bool opens = from_.stage == Stage::block;
      addLine(std::string(opens ? first : others) + line.shown.styled(around(look)), look,
              line.begin, line.readFrom);
    } while (!breaker.isAtEnd());
  }
  void addItem(const std::string& mark, int depth) {
    const std::size_t indent = static_cast<std::size_t>(depth) * columnsPerDepth;
    const std::size_t hanging = indent + text::columnCount(mark) + 1;
    const std::size_t room =
        columns_ > hanging + narrowest / 2 ? columns_ - hanging : narrowest / 2;
    addText(std::string(indent, ' ') + mark + " ", std::string(hanging, ' '), room, nullptr);
  }
  std::string codeLine(std::string_view source) const {
    std::string shown;
    if (from_.stage != Stage::row && !source.empty()) shown.append(codeIndent, ' ');
    std::size_t column = from_.column;
    PieceReader reader(source);
    for (ShownPiece piece; reader.next(piece);) {
      const std::size_t next = piece.shown == "\t" ? tabStop(column) : column + piece.columns;
      if (piece.shown == "\t") {
        shown.append(next - column, ' ');
      } else {
        shown += piece.shown;
      }
      column = next;
    }
    return shown;
  }
  std::size_t widthOf(std::string_view cell) const {
    const std::string line = onOneLine(cell);
    return text::columnCount(style_.isLive() ? withoutMarks(line).text : line);
  }
  /// The last row may still grow.
  void measure(const ResponseTable& table) {
    const std::size_t whole = table.rows.empty() ? 0 : table.rows.size() - 1;
    if (measure_.table != block_->id || measure_.rows > whole ||
        measure_.widths.size() != table.headers.size()) {
      measure_ = {.table = block_->id, .rows = 0, .widths = {}};
      for (const auto& header : table.headers) {
        measure_.widths.push_back(text::columnCount(onOneLine(header)));
      }
    }
    for (; measure_.rows < whole; ++measure_.rows) {
      for (std::size_t i = 0; i < measure_.widths.size(); ++i) {
        const auto width = widthOf(table.rows[measure_.rows][i]);
        measure_.widths[i] = std::max(measure_.widths[i], width);
      }
    }
  }

  const TerminalStyle& style_;
  std::size_t columns_;
  TableMeasure& measure_;
  const B* block_ = nullptr;
  AnswerPlace from_;  // where the next line begins
  std::vector<AnswerLine> lines_;
};

}  // namespace

std::vector<std::string> wrapped(std::string_view text, std::size_t columns) {
  LineBreaker breaker(text, 0, {});
  std::vector<std::string> lines;
  do {
    lines.push_back(breaker.take(columns).shown.text);
  } while (!breaker.isAtEnd());
  return lines;
}

std::vector<std::string> answerLines(const std::vector<ResponseBlock>& blocks,
                                     const TerminalStyle& style, std::size_t columns) {
  TableMeasure measure;
  std::vector<std::string> lines;
  for (auto& line : answerLinesFrom({}, blocks, style, columns, measure)) {
    lines.push_back(line.look ? (style.*line.look)(line.text) : std::move(line.text));
  }
  return lines;
}

std::vector<AnswerLine> answerLinesFrom(AnswerPlace place, const std::vector<ResponseBlock>& blocks,
                                        const TerminalStyle& style, std::size_t columns,
                                        TableMeasure& measure) {
  Layout layout(style, columns, measure);
  for (; place.block < blocks.size(); place = {.block = place.block + 1}) {
    const std::size_t i = place.block;
    if (place.stage == AnswerPlace::Stage::gap) {
      if (i > 0 && standsApart(blocks[i], blocks[i - 1])) layout.addGap(i);
      place.stage = AnswerPlace::Stage::block;
    }
    layout.add(blocks[i], place);
  }
  return std::move(layout).lines();
}

std::optional<AnswerPlace> placeAfterRows(std::size_t rows, const AnswerLine& line,
                                          const ResponseBlock& code, std::size_t columns) {
  const std::string_view text = code.text;
  const std::size_t begin = std::min(line.begin.offset, text.size());
  const auto source = text.substr(begin, std::min(text.find('\n', begin), text.size()) - begin);
  std::optional<AnswerPlace> place;
  std::size_t column = line.begin.column;                                             // of the line
  std::size_t filled = line.begin.stage == AnswerPlace::Stage::row ? 0 : codeIndent;  // of the row
  std::size_t read = begin;
  PieceReader reader(source);
  for (ShownPiece piece; reader.next(piece); read += piece.source.size()) {
    const bool isTab = piece.shown == "\t";
    const std::size_t width = isTab ? tabStop(column) - column : piece.columns;
    if (filled + width > columns) {
      if (rows-- == 0) return place;
      // The blanks of a tab may stand on both rows, which cannot be parted there.
      const bool isParted = isTab && filled < columns;
      if (!isParted) {
        place = AnswerPlace{line.begin.block, AnswerPlace::Stage::row, read, column};
      }
      filled = isParted ? filled + width - columns : width;
    } else {
      filled += width;
    }
    column += width;
  }
  return place;
}

}  // namespace vantrell::shell
