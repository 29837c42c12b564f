// A table for people, fitted to the terminal: columns are aligned, long texts are cut, and where
// that is not enough the columns that matter least are left out. Pure, any thread.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "shell/terminal/terminal_style.h"

namespace vantrell::shell {

struct TableColumn {
  std::string_view heading;
  /// Texts are cut down to this many columns of the terminal where room is short; 0: never cut.
  std::size_t least = 0;
  /// The column with the highest number is left out first; 0: never.
  int leavesAt = 0;
  /// The beginning of a text is cut, not its end: for paths.
  bool cutsFront = false;
  /// What texts take that stand elsewhere in the same table.
  std::size_t wanted = 0;
};

struct TableCell {
  using Look = std::string (TerminalStyle::*)(std::string_view) const;
  /// Of an agent or a user: it is made fit for one line here.
  std::string text;
  Look look = nullptr;
  /// Inline marks of Markdown become looks if the style has any. Not beside a look, nor where the
  /// beginning is cut.
  bool mayHaveMarks = false;
};

class TextTable {
 public:
  explicit TextTable(std::vector<TableColumn> columns) : columns_(std::move(columns)) {}

  void add(std::vector<TableCell> row);
  /// Lines of at most so many columns, as far as the columns that are never cut allow. The headings
  /// are left out when all are empty.
  std::string text(const TerminalStyle& style, std::size_t columns) const;

 private:
  std::vector<std::size_t> widths(const TerminalStyle& style, std::size_t columns) const;

  std::vector<TableColumn> columns_;
  std::vector<std::vector<TableCell>> rows_;
};

/// Cut, with an ellipsis, to so many columns of a terminal. The text is one line, sanitized.
std::string cutTo(std::string_view line, std::size_t columns, bool cutsFront = false);

/// The columns to fill: those of the terminal, or for a pipe or file as many as are wanted.
std::size_t columnsForTables(int descriptor);

}  // namespace vantrell::shell
