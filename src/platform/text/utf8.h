// Scanning of UTF-8 byte by byte, for the readers and writers that look at every byte of what
// agents send. Pure functions, any thread.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace vantrell::utf8 {

constexpr std::uint64_t everyByte(std::uint8_t byte) {
  return 0x0101010101010101ULL * byte;
}

inline std::uint64_t eightBytes(const char* from) {
  std::uint64_t word;
  std::memcpy(&word, from, sizeof word);
  return word;
}

/// The first byte that is not ASCII, or `end`.
inline const char* endOfAscii(const char* from, const char* end) {
  while (end - from >= 8 && (eightBytes(from) & everyByte(0x80)) == 0) from += 8;
  while (from != end && static_cast<unsigned char>(*from) < 0x80) ++from;
  return from;
}

/// The first byte that a JSON string cannot carry as it stands without a further look (a quote, a
/// backslash, a control character, a byte of a longer sequence), or `end`.
inline const char* endOfPlainText(const char* from, const char* end) {
  if constexpr (std::endian::native == std::endian::little) {
    while (end - from >= 8) {
      const std::uint64_t word = eightBytes(from);
      const std::uint64_t quote = word ^ everyByte('"');
      const std::uint64_t backslash = word ^ everyByte('\\');
      // A borrow can mark a byte falsely only above one that is marked rightly: the lowest mark,
      // the only one used, is exact.
      const std::uint64_t marks =
          ((quote - everyByte(1)) | (backslash - everyByte(1)) | (word - everyByte(0x20)) | word) &
          everyByte(0x80);
      if (marks != 0) {
        from += std::countr_zero(marks) / 8;
        break;
      }
      from += 8;
    }
  }
  while (from != end) {
    const auto byte = static_cast<unsigned char>(*from);
    if (byte < 0x20 || byte >= 0x80 || byte == '"' || byte == '\\') break;
    ++from;
  }
  return from;
}

inline bool isAscii(std::string_view text) {
  const char* const end = text.data() + text.size();
  return endOfAscii(text.data(), end) == end;
}

/// Whether the byte goes on with a character and begins none.
constexpr bool isContinuation(char byte) {
  return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

/// Where the rest of a character that begins before `at` ends: it has three such bytes at most.
constexpr std::size_t endOfContinuation(std::string_view text, std::size_t at) {
  const std::size_t most = at + 3;
  while (at < most && at < text.size() && isContinuation(text[at])) ++at;
  return at;
}

struct Sequence {
  std::size_t length;  // bytes; of an invalid one, those that one U+FFFD stands for
  bool valid;
};

/// Judges the sequence whose first byte is at `from` (which is not `end`). Invalid are overlong
/// forms, surrogates, values above U+10FFFF and cut sequences; the length of an invalid one follows
/// the "maximal subpart" practice of the Unicode Standard, section 3.9, which WHATWG decoders use.
inline Sequence sequenceAt(const char* from, const char* end) {
  const auto byteAt = [from](std::size_t i) { return static_cast<unsigned char>(from[i]); };
  const unsigned char lead = byteAt(0);
  if (lead < 0x80) return {1, true};
  std::size_t length = 0;
  unsigned char low = 0x80;
  unsigned char high = 0xBF;
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
  } else if ((lead & 0xF0) == 0xE0) {
    length = 3;
    if (lead == 0xE0) low = 0xA0;
    if (lead == 0xED) high = 0x9F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;
  } else {
    return {1, false};
  }
  for (std::size_t i = 1; i < length; ++i) {
    if (from + i == end || byteAt(i) < low || byteAt(i) > high) return {i, false};
    low = 0x80;
    high = 0xBF;
  }
  return {length, true};
}

/// The character of one valid sequence.
constexpr std::int32_t codePoint(std::string_view sequence) {
  const int lead = static_cast<unsigned char>(sequence[0]);
  std::int32_t point = sequence.size() == 1 ? lead : lead & (0x7F >> sequence.size());
  for (const char c : sequence.substr(1)) point = point << 6 | (c & 0x3F);
  return point;
}

/// The first character of the text, or -1 where the bytes are not UTF-8 or there are none.
inline std::int32_t codePointAt(std::string_view text) {
  if (text.empty()) return -1;
  const Sequence sequence = sequenceAt(text.data(), text.data() + text.size());
  return sequence.valid ? codePoint(text.substr(0, sequence.length)) : -1;
}

inline constexpr char replacement[] = "\xEF\xBF\xBD";  // U+FFFD

}  // namespace vantrell::utf8
