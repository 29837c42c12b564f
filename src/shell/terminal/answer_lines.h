// The blocks of an answer as lines for a terminal. Texts are wrapped; code is not, so that it can
// be copied. Blocks are made of sanitized text. Pure, any thread.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "presentation/response_block.h"
#include "shell/terminal/terminal_style.h"

namespace vantrell::shell {

struct AnswerLine {
  std::string text;  // with its escape sequences
  /// Where it ends: bytes of the block's text, rows of a table with its headings.
  std::size_t end = 0;
  /// Neither bold nor code goes on in the next line.
  bool endsPlain = true;
  /// More text does not change it, as long as another line follows.
  bool isSettled = true;
};

/// The lines of a block behind `from`, an end as above. `isBegun`: it has lines before them.
std::vector<AnswerLine> blockLines(const ResponseBlock& block, std::size_t from, bool isBegun,
                                   const TerminalStyle& style, std::size_t columns);
/// The greatest end of a block.
std::size_t endOf(const ResponseBlock& block);
/// Whether an empty line parts them: not within a list, nor within lines of a quote.
bool standsApart(const ResponseBlock& block, const ResponseBlock& before);

/// Those of a whole answer, as the agent sent it.
std::vector<std::string> answerLines(std::string_view text, const TerminalStyle& style,
                                     std::size_t columns);

}  // namespace vantrell::shell
