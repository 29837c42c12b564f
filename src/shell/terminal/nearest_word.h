// Finds what a mistyped word was meant to be. Pure function, any thread.
#pragma once

#include <optional>
#include <span>
#include <string_view>

namespace vantrell::shell {

/// The known word that is fewest single-character edits away (Levenshtein's distance), when that is
/// at most a third of its length.
std::optional<std::string_view> nearestWord(std::string_view word,
                                            std::span<const std::string_view> known);

}  // namespace vantrell::shell
