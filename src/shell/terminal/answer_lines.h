// An answer as lines of a terminal: its blocks laid out, wrapped to the width, without the marks of
// Markdown that the layout replaces. Pure functions, any thread.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "presentation/response_block.h"
#include "shell/terminal/terminal_style.h"

namespace vantrell::shell {

/// The lines of all blocks, with empty ones between those that belong apart. Texts are of an agent:
/// they are made fit for a terminal here. Code is never wrapped, so that it can be copied; its tabs
/// become blanks, which stand where the indentation puts them. Inline marks become looks if the
/// style has any; each look ends with its line.
std::vector<std::string> answerLines(const std::vector<ResponseBlock>& blocks,
                                     const TerminalStyle& style, std::size_t columns);

/// A text as lines of at most so many columns, broken at blanks where there are any.
std::vector<std::string> wrapped(std::string_view text, std::size_t columns);

// ---- for an answer that grows -------------------------------------------------------------------

/// Where in an answer a line begins, or how far it has been shown.
struct AnswerPlace {
  enum class Stage {
    gap,    // before the block, and before the empty line that may set it apart
    block,  // before its first line
    line,   // before a line within it
    row,    // within a line of code, where the terminal has wrapped it
    end     // anywhere; what follows begins a line of its own
  };
  std::size_t block = 0;
  Stage stage = Stage::gap;
  std::size_t offset = 0;    // within the block: bytes of its text, or lines of a table
  std::size_t column = 0;    // of a row: within the line of code
  std::size_t readFrom = 0;  // of a text: where its inline marks are read from
};

struct AnswerLine {
  using Look = std::string (TerminalStyle::*)(std::string_view) const;

  std::string text;
  Look look = nullptr;  // of the whole line; parts of it may bring their own
  AnswerPlace begin;

  bool looksLike(const AnswerLine& other) const { return text == other.text && look == other.look; }
};

/// How wide the columns of a table are that grows: rows before its last are measured once.
struct TableMeasure {
  std::optional<Uuid> table;
  std::size_t rows = 0;
  std::vector<std::size_t> widths;
};

/// The lines from a place on. The cost is that of these lines.
std::vector<AnswerLine> answerLinesFrom(AnswerPlace place, const std::vector<ResponseBlock>& blocks,
                                        const TerminalStyle& style, std::size_t columns,
                                        TableMeasure& measure);

/// Where a line of code goes on that takes up more than `rows` rows of a terminal, after so many of
/// them or fewer; absent where it cannot be parted.
std::optional<AnswerPlace> placeAfterRows(std::size_t rows, const AnswerLine& line,
                                          const ResponseBlock& code, std::size_t columns);

}  // namespace vantrell::shell
