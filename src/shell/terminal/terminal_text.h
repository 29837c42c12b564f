// Text made fit for a terminal. Pure functions, any thread.
#pragma once

#include <string>
#include <string_view>

#include "platform/text/visible_text.h"

namespace vantrell::shell {

using text::boundedLines;
using text::onOneLine;
using text::sanitized;

/// Cut, with an ellipsis, to what surely fits into that many columns. Widths are guessed from
/// above: every character beyond ASCII counts as two columns.
std::string fitted(std::string_view text, int columns);

}  // namespace vantrell::shell
