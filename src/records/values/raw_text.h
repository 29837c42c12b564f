// Enumerations that are stored and sent as text. An enumeration takes part by declaring, beside
// itself, its texts in the order of its cases:
//
//     constexpr auto rawTexts(ChatEntryKind) {
//       return std::to_array<std::string_view>({"user", "assistant"});
//     }
#pragma once

#include <array>
#include <concepts>
#include <optional>
#include <string_view>
#include <type_traits>

namespace vantrell {

template <typename E>
concept HasRawTexts = std::is_enum_v<E> && requires(E value) {
  { rawTexts(value)[0] } -> std::convertible_to<std::string_view>;
};

template <HasRawTexts E>
constexpr std::string_view rawText(E value) {
  return rawTexts(E{})[static_cast<std::size_t>(value)];
}

/// Absent for a text that no case has.
template <HasRawTexts E>
constexpr std::optional<E> fromRawText(std::string_view text) {
  constexpr auto texts = rawTexts(E{});
  for (std::size_t i = 0; i < texts.size(); ++i) {
    if (texts[i] == text) return static_cast<E>(i);
  }
  return std::nullopt;
}

}  // namespace vantrell
