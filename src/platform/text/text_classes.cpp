#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include "platform/text/text.h"

namespace vantrell::text {

namespace {

struct CodePoint {
  UChar32 point;  // negative where the bytes are no UTF-8, or where there are none
  std::size_t length;
};

CodePoint codePointAt(std::string_view text, std::size_t at) {
  if (at >= text.size()) return {-1, 0};
  const std::size_t length = std::min<std::size_t>(text.size() - at, U8_MAX_LENGTH);
  std::int32_t next = 0;
  UChar32 point = 0;
  U8_NEXT(text.data() + at, next, static_cast<std::int32_t>(length), point);
  return {point, static_cast<std::size_t>(next)};
}

}  // namespace

bool continuesWord(std::string_view rest) {
  const UChar32 point = codePointAt(rest, 0).point;
  if (point < 0) return false;
  // As ICU's matcher decides about \b and \w.
  switch (u_charType(point)) {
    case U_FORMAT_CHAR:
    case U_DECIMAL_DIGIT_NUMBER:
    case U_CONNECTOR_PUNCTUATION:
    case U_NON_SPACING_MARK:
    case U_ENCLOSING_MARK:
    case U_COMBINING_SPACING_MARK: return true;
    default: break;
  }
  return u_isUAlphabetic(point) || u_hasBinaryProperty(point, UCHAR_GRAPHEME_EXTEND);
}

std::size_t decimalDigitAt(std::string_view text, std::size_t at) {
  const CodePoint found = codePointAt(text, at);
  return found.point >= 0 && u_charType(found.point) == U_DECIMAL_DIGIT_NUMBER ? found.length : 0;
}

}  // namespace vantrell::text
