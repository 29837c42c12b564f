// A table for people, fitted to the terminal: columns are aligned, long texts are cut, and where
// that is not enough, columns that are never cut are left out, the last one first, but for the
// first two. Pure, any thread.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "shell/terminal/terminal_style.h"

namespace vantrell::shell {

struct TableColumn {
  std::string_view heading;
  /// 0: texts are never cut. Else they are where room is short; to be cut to fewer columns of the
  /// terminal than these, other columns are left out first.
  std::size_t least = 0;
  /// The beginning of a text is cut, not its end: for paths.
  bool cutsFront = false;
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
namespace look {
inline constexpr TableCell::Look dim = &TerminalStyle::dim, bold = &TerminalStyle::bold,
                                 red = &TerminalStyle::red, green = &TerminalStyle::green,
                                 yellow = &TerminalStyle::yellow, cyan = &TerminalStyle::cyan;
}  // namespace look

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

}  // namespace vantrell::shell
