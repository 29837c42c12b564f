// An answer as text for a speech synthesizer: without markup, and without code, which is hard to
// follow by ear. Pure, any thread.
#pragma once

#include <string>
#include <string_view>

namespace vantrell::SpokenText {

/// One line. Invalid UTF-8 becomes U+FFFD. Each kind of markup is looked for during at most half a
/// second of processor time; what a hostile text has beyond that keeps its marks.
std::string render(std::string_view text);

}  // namespace vantrell::SpokenText
