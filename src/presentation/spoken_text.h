// An answer as text for a speech synthesizer: without markup, and without the code that nobody
// wants to hear. Pure, in linear time, any thread.
#pragma once

#include <string>
#include <string_view>

namespace vantrell::SpokenText {

/// One line. Invalid UTF-8 becomes U+FFFD.
std::string render(std::string_view text);

}  // namespace vantrell::SpokenText
