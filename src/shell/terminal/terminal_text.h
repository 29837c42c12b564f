// Text made fit for a terminal. Pure functions, any thread.
#pragma once

#include <string>
#include <string_view>

#include "platform/text/visible_text.h"

namespace vantrell::shell {

using text::boundedLines;
using text::onOneLine;
using text::sanitized;

/// Cut, with an ellipsis, to so many columns of a terminal. The text is one line, sanitized.
std::string cutTo(std::string_view line, std::size_t columns, bool cutsFront = false);

}  // namespace vantrell::shell
