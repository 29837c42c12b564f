#include <unicode/uchar.h>

#include "platform/text/text.h"
#include "platform/text/utf8.h"

namespace vantrell::text {
namespace {

int columnsOf(UChar32 point) {
  if (point < 0x80) return 1;  // what is not UTF-8 too
  const auto type = u_charType(point);
  if (type == U_NON_SPACING_MARK || type == U_ENCLOSING_MARK || type == U_FORMAT_CHAR) {
    return point == 0xAD ? 1 : 0;  // terminals show the soft hyphen
  }
  const auto width = u_getIntPropertyValue(point, UCHAR_EAST_ASIAN_WIDTH);
  return width == U_EA_WIDE || width == U_EA_FULLWIDTH ? 2 : 1;
}

/// A character that is followed by this one is shown as an emoji, and wide.
constexpr std::string_view emojiSelector = "\xEF\xB8\x8F";  // U+FE0F

}  // namespace

std::string_view firstColumns(std::string_view text, std::size_t& columns) {
  std::size_t used = 0;
  std::size_t at = 0;
  while (at < text.size()) {
    const auto next = at + utf8::sequenceAt(&text[at], text.data() + text.size()).length;
    int width = columnsOf(utf8::codePointAt(text.substr(at)));
    if (width == 1 && text.substr(next).starts_with(emojiSelector)) width = 2;
    if (used + static_cast<std::size_t>(width) > columns) break;
    used += static_cast<std::size_t>(width);
    at = next;
  }
  columns = used;
  return text.substr(0, at);
}

std::size_t columnCount(std::string_view text) {
  std::size_t columns = std::string_view::npos;
  firstColumns(text, columns);
  return columns;
}

bool continuesWord(std::string_view rest) {
  const UChar32 point = utf8::codePointAt(rest);
  // As ICU's matcher decides about \b and \w.
  constexpr std::uint32_t wordTypes = U_GC_CF_MASK | U_GC_ND_MASK | U_GC_PC_MASK | U_GC_M_MASK;
  return point >= 0 && ((U_GET_GC_MASK(point) & wordTypes) != 0 || u_isUAlphabetic(point) ||
                        u_hasBinaryProperty(point, UCHAR_GRAPHEME_EXTEND));
}

}  // namespace vantrell::text
