#include "shell/terminal/text_table.h"

#include <algorithm>

#include "platform/text/text.h"
#include "shell/terminal/terminal_text.h"

namespace vantrell::shell {

namespace {

constexpr std::size_t gap = 2;         // columns
constexpr std::size_t leastOfAll = 5;  // of a column that is cut

InlineText shownOf(const TableCell& cell, const TerminalStyle& style) {
  if (cell.mayHaveMarks && style.isLive()) return withoutMarks(cell.text);
  return {.text = cell.text, .looks = {}};
}

}  // namespace

void TextTable::add(std::vector<TableCell> row) {
  row.resize(columns_.size());
  for (auto& cell : row) cell.text = onOneLine(cell.text);
  rows_.push_back(std::move(row));
}

std::vector<std::size_t> TextTable::widths(const TerminalStyle& style, std::size_t columns) const {
  std::vector<std::size_t> width;
  for (std::size_t i = 0; i < columns_.size(); ++i) {
    width.push_back(text::columnCount(columns_[i].heading));
    for (const auto& row : rows_) {
      width[i] = std::max(width[i], text::columnCount(shownOf(row[i], style).text));
    }
  }
  const auto isTooWide = [&](bool isCut) {
    std::size_t total = 0;
    for (std::size_t i = 0; i < width.size(); ++i) {
      const std::size_t least = isCut && columns_[i].least > 0 ? columns_[i].least : width[i];
      if (width[i] > 0) total += std::min(width[i], least) + gap;
    }
    return total > columns + gap;
  };
  for (std::size_t i = width.size(); i-- > 2 && isTooWide(true);) {
    if (columns_[i].least == 0) width[i] = 0;
  }
  // Of the columns that may be cut, the widest shrinks first.
  while (isTooWide(false)) {
    std::size_t widest = 0;
    for (std::size_t i = 1; i < width.size(); ++i) {
      const bool isWider = columns_[widest].least == 0 || width[i] > width[widest];
      if (columns_[i].least > 0 && isWider) widest = i;
    }
    if (columns_[widest].least == 0 || width[widest] <= leastOfAll) break;
    --width[widest];
  }
  return width;
}

std::string TextTable::text(const TerminalStyle& style, std::size_t columns) const {
  const auto width = widths(style, columns);
  std::string all;
  const auto addLine = [&](const auto& cellAt) {
    std::string line;
    std::size_t blanks = 0;  // due before the next text, so that no line ends with them
    for (std::size_t i = 0; i < columns_.size(); ++i) {
      if (width[i] == 0) continue;
      const TableCell cell = cellAt(i);
      InlineText shown = shownOf(cell, style);
      shown.text = cutTo(shown.text, width[i], columns_[i].cutsFront);
      if (!shown.text.empty()) {
        line.append(blanks, ' ');
        blanks = 0;
        const std::string text = styled(shown);
        line += cell.look ? (style.*cell.look)(text) : text;
      }
      blanks += width[i] - std::min(width[i], text::columnCount(shown.text)) + gap;
    }
    all += line + "\n";
  };
  if (std::ranges::any_of(columns_, [](const auto& each) { return !each.heading.empty(); })) {
    addLine([&](std::size_t i) {
      return TableCell{std::string(columns_[i].heading), &TerminalStyle::dim};
    });
  }
  for (const auto& row : rows_) addLine([&](std::size_t i) { return row[i]; });
  return all;
}

}  // namespace vantrell::shell
