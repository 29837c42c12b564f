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
constexpr std::size_t leftOut = std::string_view::npos;

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
  std::vector<std::size_t> natural;
  for (std::size_t i = 0; i < columns_.size(); ++i) {
    std::size_t width = std::max(columns_[i].wanted, text::columnCount(columns_[i].heading));
    for (const auto& row : rows_) {
      width = std::max(width, text::columnCount(shownOf(row[i], style).text));
    }
    natural.push_back(width);
  }
  std::vector<bool> stays;
  for (const std::size_t width : natural) stays.push_back(width > 0);
  for (;;) {
    std::vector<std::size_t> now(columns_.size(), leftOut);
    std::size_t total = 0;
    for (std::size_t i = 0; i < columns_.size(); ++i) {
      if (!stays[i]) continue;
      now[i] = natural[i];
      total += natural[i] + (total > 0 ? gap : 0);
    }
    // The widest shrinks first.
    const auto shrink = [&](bool isLastResort) {
      const auto spare = [&](std::size_t i) {
        const std::size_t least =
            isLastResort ? std::min(columns_[i].least, leastOfAll) : columns_[i].least;
        return stays[i] && least > 0 && now[i] > least ? now[i] - least : 0;
      };
      while (total > columns) {
        std::size_t giver = 0;
        for (std::size_t i = 1; i < columns_.size(); ++i) {
          if (spare(i) > spare(giver)) giver = i;
        }
        if (spare(giver) == 0) return;
        --now[giver];
        --total;
      }
    };
    shrink(false);
    if (total <= columns) return now;
    std::size_t leaver = columns_.size();
    for (std::size_t i = 0; i < columns_.size(); ++i) {
      if (!stays[i] || columns_[i].leavesAt == 0) continue;
      if (leaver == columns_.size() || columns_[i].leavesAt > columns_[leaver].leavesAt) leaver = i;
    }
    if (leaver == columns_.size()) {
      shrink(true);
      return now;
    }
    stays[leaver] = false;
  }
}

std::string TextTable::text(const TerminalStyle& style, std::size_t columns) const {
  const auto width = widths(style, columns);
  std::string all;
  const auto addLine = [&](const auto& cellAt) {
    std::string line;
    std::size_t blanks = 0;  // due before the next text, so that no line ends with them
    for (std::size_t i = 0; i < columns_.size(); ++i) {
      if (width[i] == leftOut) continue;
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
