// Finds the word that was meant by a mistyped one. Pure, any thread.
#pragma once

#include <span>
#include <string_view>

namespace vantrell::text {

/// The known word that takes the fewest edits, at most one for every three of its characters;
/// empty: none is near.
std::string_view nearWord(std::string_view word, std::span<const std::string_view> known);

}  // namespace vantrell::text
