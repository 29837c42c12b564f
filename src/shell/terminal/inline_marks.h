// Marks of Markdown within one line of an agent, which a terminal with styles shows as looks
// instead: **bold** and `code`. In doubt they are left alone: a power, a glob and a mark without a
// partner stay as they were written, and so do *these* and _these_, which names and globs have as
// well. Pure, any thread.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace vantrell::shell {

/// A text without its marks.
struct InlineText {
  struct Change {
    std::size_t at;
    bool isBold, isCode;  // what follows
    std::size_t removed;  // bytes of marks up to here
  };
  /// How all of the text looks, whatever stands in it.
  enum class Around { plain, bold, dim };

  std::string text;
  std::vector<Change> changes;  // in their order
  /// Bytes at the front of the source that look the same when more text follows.
  std::size_t settled = 0;

  /// The bytes from `begin` to `end` with escape sequences, which end with them.
  std::string styled(Around around, std::size_t begin = 0,
                     std::size_t end = std::string::npos) const;
  /// The last change up to a place: how the text looks there.
  Change at(std::size_t place) const;
};

/// Further apart, in bytes, two marks are not partners: a text that grows is decided so far.
inline constexpr std::size_t longestSpan = 400;

InlineText withoutMarks(std::string_view source);
/// With all marks as text.
InlineText asWritten(std::string_view source);

}  // namespace vantrell::shell
