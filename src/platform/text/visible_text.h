// Text of agents, projects and documents made fit to be shown. It must not be able to drive the
// user's terminal by escape sequences, nor to turn a line around so that it reads as another. Pure
// functions, any thread.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vantrell::text {

/// Line feeds and tabs stay; other control characters become visible signs, and so do those that
/// change the direction of text. Invalid UTF-8 becomes U+FFFD.
std::string sanitized(std::string_view text);

/// The same on one line: line breaks and tabs become spaces.
std::string onOneLine(std::string_view text);

/// All lines of a text, sanitized. Empty lines at the end do not count.
std::vector<std::string> visibleLines(std::string_view text);

/// The first lines of a text, sanitized; what is left out is counted in a last line "… 7 more
/// lines". Of a very long line the beginning is shown.
std::vector<std::string> boundedLines(std::string_view text, std::size_t most);

/// Cut, with an ellipsis, to so many columns of a terminal. The text is one line, sanitized.
std::string cutTo(std::string_view line, std::size_t columns, bool cutsFront = false);

}  // namespace vantrell::text
