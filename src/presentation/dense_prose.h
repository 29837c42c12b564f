// A long answer without any structure is broken up into paragraphs, sentence by sentence. Pure, in
// linear time, any thread.
#pragma once

#include <string>
#include <string_view>

namespace vantrell::dense {

/// Texts of up to so many user-perceived characters are left as they are.
inline constexpr std::size_t longestPlain = 340;

/// A text without structure (line feeds only, no white space at its ends) with a blank line between
/// its paragraphs. Of fewer than two sentences it only has its missing sentence breaks put in.
std::string brokenUp(std::string_view text);

}  // namespace vantrell::dense
