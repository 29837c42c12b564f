// An answer as lines of a terminal: its blocks laid out, wrapped to the width, without the marks of
// Markdown that the layout replaces. Pure functions, any thread.
#pragma once

#include <string>
#include <vector>

#include "presentation/response_block.h"
#include "shell/terminal/terminal_style.h"

namespace vantrell::shell {

/// The lines of all blocks, with empty ones between those that belong apart. Texts are of an agent:
/// they are made fit for a terminal here. Code is never wrapped, so that it can be copied.
std::vector<std::string> answerLines(const std::vector<ResponseBlock>& blocks,
                                     const TerminalStyle& style, std::size_t columns);

/// A text as lines of at most so many columns, broken at blanks where there are any.
std::vector<std::string> wrapped(std::string_view text, std::size_t columns);

}  // namespace vantrell::shell
