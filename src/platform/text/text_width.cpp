#include <unicode/uchar.h>

#include "platform/text/text.h"
#include "platform/text/utf8.h"

namespace vantrell::text {
namespace {

UChar32 pointOf(std::string_view bytes) {
  UChar32 point = static_cast<unsigned char>(bytes[0]);
  if (bytes.size() == 1) return point;
  point &= bytes.size() == 2 ? 0x1F : bytes.size() == 3 ? 0x0F : 0x07;
  for (const char c : bytes.substr(1)) point = point << 6 | (c & 0x3F);
  return point;
}

int columnsOf(UChar32 point) {
  if (point < 0x80) return 1;
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
    const auto sequence = utf8::sequenceAt(text.data() + at, text.data() + text.size());
    int width = sequence.valid ? columnsOf(pointOf(text.substr(at, sequence.length))) : 1;
    if (width == 1 && text.substr(at + sequence.length).starts_with(emojiSelector)) width = 2;
    if (used + static_cast<std::size_t>(width) > columns) break;
    used += static_cast<std::size_t>(width);
    at += sequence.length;
  }
  columns = used;
  return text.substr(0, at);
}

std::size_t columnCount(std::string_view text) {
  std::size_t columns = std::string_view::npos;
  firstColumns(text, columns);
  return columns;
}

}  // namespace vantrell::text
