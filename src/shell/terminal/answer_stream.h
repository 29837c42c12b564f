// An answer that is laid out on a live terminal while it comes. A line is given out once it is
// complete, and never again; a table once it is whole. Makes text and writes nothing. Owned by what
// prints the transcript; one thread at a time.
#pragma once

#include <string>
#include <string_view>

#include "presentation/incremental_blocks.h"
#include "shell/terminal/terminal_style.h"

namespace vantrell::shell {

class AnswerStream {
 public:
  explicit AnswerStream(const TerminalStyle& style) : style_(style) {}

  /// Takes the next text, as the agent sent it.
  void append(std::string_view text) { waiting_ += text; }
  /// The lines that are complete since the last call. Costs a parse of the open block, and the
  /// layout of what of it was not given out.
  std::string lines(std::size_t columns) { return take(columns, false); }
  /// All that is left. What follows begins a new line.
  std::string finish(std::size_t columns) { return take(columns, true); }

 private:
  std::size_t decided(bool isAll);
  std::string take(std::size_t columns, bool isAll);
  std::string linesOf(const ResponseBlock& block, std::size_t columns, bool isOpen);

  TerminalStyle style_;
  /// As written: broken up, prose would move between paragraphs that have been printed.
  IncrementalBlocks blocks_{IncrementalBlocks::Prose::asWritten};
  std::string waiting_;        // not in blocks_ yet: it does not say what its line is
  bool isInLine_ = false;      // the last line in blocks_ has not ended
  bool isAfterBlank_ = false;  // what comes next begins another block, or goes on with code
  bool isInCode_ = false;

  /// What of the answer was given out.
  std::size_t block_ = 0;
  std::size_t kind_ = 0;   // of that block, which may still become another
  bool isBegun_ = false;   // it has lines
  std::size_t shown_ = 0;  // where the last of them ends
  std::size_t from_ = 0;   // where one of them ended plain, so that a layout can begin there
  bool isFirst_ = true;    // nothing since the last finish()
};

}  // namespace vantrell::shell
