#include "shell/terminal/text_table.h"

#include <algorithm>

#include "platform/text/text.h"
#include "shell/terminal/inline_marks.h"
#include "shell/terminal/terminal_text.h"

namespace vantrell::shell {

namespace {

constexpr std::size_t gap = 2;  // columns
constexpr std::size_t narrowest = 20;
constexpr std::size_t leastOfAll = 5;    // of a column that is cut, when nothing else helps
constexpr std::size_t unlimited = 1000;  // longer lines are not for reading

std::string_view lastColumns(std::string_view text, std::size_t columns) {
  const std::size_t total = text::columnCount(text);
  for (std::size_t skipped = total - std::min(total, columns);; ++skipped) {
    std::size_t filled = skipped;
    const auto rest = text.substr(text::firstColumns(text, filled).size());
    if (text::columnCount(rest) <= columns) return rest;
  }
}

InlineText shownOf(const TableCell& cell, const TerminalStyle& style) {
  if (cell.mayHaveMarks && style.isLive()) return withoutMarks(cell.text);
  return asWritten(cell.text);
}

}  // namespace

std::string cutTo(std::string_view line, std::size_t columns, bool cutsFront) {
  if (text::columnCount(line) <= columns) return std::string(line);
  if (columns == 0) return "";
  if (cutsFront) return "…" + std::string(lastColumns(line, columns - 1));
  std::size_t room = columns - 1;
  std::string_view kept = text::firstColumns(line, room);
  while (kept.ends_with(' ')) kept.remove_suffix(1);
  return std::string(kept) + "…";
}

std::size_t columnsForTables(int descriptor) {
  const auto size = terminal::size(descriptor);
  if (!size || size->columns <= 0) return unlimited;
  return std::max(static_cast<std::size_t>(size->columns), narrowest);
}

void TextTable::add(std::vector<TableCell> row) {
  row.resize(columns_.size());
  for (auto& cell : row) cell.text = onOneLine(cell.text);
  rows_.push_back(std::move(row));
}

std::vector<std::size_t> TextTable::widths(const TerminalStyle& style, std::size_t columns) const {
  std::vector<std::size_t> width;
  std::size_t total = 0, fewest = 0;  // with the gap after each column
  for (std::size_t i = 0; i < columns_.size(); ++i) {
    width.push_back(text::columnCount(columns_[i].heading));
    for (const auto& row : rows_) {
      width[i] = std::max(width[i], text::columnCount(shownOf(row[i], style).text));
    }
    if (width[i] == 0) continue;
    total += width[i] + gap;
    fewest += (columns_[i].least > 0 ? std::min(width[i], columns_[i].least) : width[i]) + gap;
  }
  for (std::size_t i = columns_.size(); i-- > 2 && fewest > columns + gap;) {
    if (columns_[i].least > 0 || width[i] == 0) continue;
    fewest -= width[i] + gap;
    total -= std::exchange(width[i], 0) + gap;
  }
  // Of the columns that may be cut, the widest shrinks first.
  const auto shrink = [&](std::size_t leastOfEach) {
    while (total > columns + gap) {
      const auto spare = [&](std::size_t i) {
        const std::size_t least = std::min(columns_[i].least, leastOfEach);
        return least > 0 && width[i] > least ? width[i] - least : 0;
      };
      std::size_t giver = 0;
      for (std::size_t i = 1; i < columns_.size(); ++i) {
        if (spare(i) > spare(giver)) giver = i;
      }
      if (spare(giver) == 0) return;
      --width[giver];
      --total;
    }
  };
  shrink(unlimited);
  shrink(leastOfAll);
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
        const std::string text = shown.styled(InlineText::Around::plain);
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
