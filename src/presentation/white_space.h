// The two kinds of white space that the rules of answers tell apart: what stands within a line
// (Unicode's space separators and the tab) and what ends one. Together they are Unicode's
// White_Space, which is what "\s" of a regular expression matches. Pure functions on UTF-8; bytes
// that are no UTF-8 are no white space.
#pragma once

#include <cstddef>
#include <string_view>

#include "platform/text/utf8.h"

namespace vantrell::white {

constexpr unsigned char byteAt(std::string_view text, std::size_t at) {
  return at < text.size() ? static_cast<unsigned char>(text[at]) : 0;
}

/// Bytes of the white space within a line that stands at `at`; 0 when something else does.
constexpr std::size_t blankAt(std::string_view text, std::size_t at) {
  const unsigned char first = byteAt(text, at);
  if (first == ' ' || first == '\t') return 1;
  if (first < 0xC2) return 0;
  const unsigned char second = byteAt(text, at + 1);
  if (first == 0xC2) return second == 0xA0 ? 2 : 0;  // U+00A0
  const unsigned char third = byteAt(text, at + 2);
  switch (first) {
    case 0xE1: return second == 0x9A && third == 0x80 ? 3 : 0;  // U+1680
    case 0xE2:                                                  // U+2000 to 200A, 202F; 205F
      if (second == 0x80) return (third >= 0x80 && third <= 0x8A) || third == 0xAF ? 3 : 0;
      return second == 0x81 && third == 0x9F ? 3 : 0;
    case 0xE3: return second == 0x80 && third == 0x80 ? 3 : 0;  // U+3000
    default: return 0;
  }
}

/// Bytes of the line terminator at `at`: LF, VT, FF, CR, NEL, U+2028, U+2029; else 0.
constexpr std::size_t breakAt(std::string_view text, std::size_t at) {
  const unsigned char first = byteAt(text, at);
  if (first >= '\n' && first <= '\r') return 1;
  if (first < 0xC2) return 0;
  const unsigned char second = byteAt(text, at + 1);
  if (first == 0xC2) return second == 0x85 ? 2 : 0;
  const unsigned char third = byteAt(text, at + 2);
  return first == 0xE2 && second == 0x80 && (third == 0xA8 || third == 0xA9) ? 3 : 0;
}

/// Bytes of either.
constexpr std::size_t at(std::string_view text, std::size_t place) {
  const unsigned char first = byteAt(text, place);
  if (first > ' ' && first < 0xC2) return 0;
  const std::size_t blank = blankAt(text, place);
  return blank != 0 ? blank : breakAt(text, place);
}

/// The first byte at or behind `from` that is not what `kind` (blankAt, breakAt, at) measures.
template <typename Kind>
constexpr std::size_t skip(std::string_view text, std::size_t from, Kind kind) {
  while (const std::size_t length = kind(text, from)) from += length;
  return from;
}

/// The end of what remains of [begin, end) without what `kind` measures at its end.
template <typename Kind>
constexpr std::size_t trimEnd(std::string_view text, std::size_t begin, std::size_t end,
                              Kind kind) {
  while (end > begin) {
    std::size_t length = 1;
    if (static_cast<unsigned char>(text[end - 1]) >= 0x80) {
      // No white space has more than three bytes.
      while (length < 3 && end - length > begin && utf8::isContinuation(text[end - length])) {
        ++length;
      }
    }
    if (kind(text.substr(0, end), end - length) != length) break;
    end -= length;
  }
  return end;
}

/// Without the white space within lines at both ends.
constexpr std::string_view trimmedOfBlanks(std::string_view text) {
  const std::size_t begin = skip(text, 0, blankAt);
  return text.substr(begin, trimEnd(text, begin, text.size(), blankAt) - begin);
}

}  // namespace vantrell::white
