#include "platform/text/visible_text.h"

#include <fmt/format.h>

#include "platform/text/text.h"
#include "platform/text/utf8.h"

namespace vantrell::text {

namespace {

constexpr char deletion = 0x7F;

/// A longer line is cut.
constexpr std::size_t longestLine = 2000;  // user-perceived characters

/// C1 controls (0x9B opens an escape sequence by itself), the separators that some programs take
/// for line breaks, and all that turns the direction of text: marks, embeddings, overrides and
/// isolates (Unicode's Bidi_Control).
bool isHarmful(std::int32_t character) {
  const auto isIn = [character](std::int32_t first, std::int32_t last) {
    return character >= first && character <= last;
  };
  return isIn(0x80, 0x9F) || character == 0x061C || isIn(0x200E, 0x200F) || isIn(0x2028, 0x202E) ||
         isIn(0x2066, 0x2069);
}

/// The pictures of control characters are in the same order, from U+2400.
void appendPicture(std::string& out, char control) {
  out += "\xE2\x90";
  out += control == deletion ? '\xA1' : static_cast<char>(0x80 + control);
}

std::string_view lastColumns(std::string_view text, std::size_t columns) {
  const std::size_t total = columnCount(text);
  for (std::size_t skipped = total - std::min(total, columns);; ++skipped) {
    std::size_t filled = skipped;
    const auto rest = text.substr(firstColumns(text, filled).size());
    if (columnCount(rest) <= columns) return rest;
  }
}

}  // namespace

std::string sanitized(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  const char* const end = text.data() + text.size();
  for (const char* at = text.data(); at != end;) {
    const auto sequence = utf8::sequenceAt(at, end);
    const std::string_view bytes(at, sequence.length);
    at += sequence.length;
    if (!sequence.valid) {
      out += utf8::replacement;
    } else if (bytes.size() == 1) {
      const char byte = bytes[0];
      if (byte == '\r' && at != end && *at == '\n') continue;
      const bool isControl = (byte >= 0 && byte < ' ') || byte == deletion;
      if (isControl && byte != '\n' && byte != '\t') {
        appendPicture(out, byte);
      } else {
        out += byte;
      }
    } else if (const auto character = utf8::codePoint(bytes); isHarmful(character)) {
      out += fmt::format("<U+{:04X}>", character);
    } else {
      out += bytes;
    }
  }
  return out;
}

std::string onOneLine(std::string_view text) {
  std::string line = sanitized(trimmed(text));
  std::ranges::replace(line, '\n', ' ');
  std::ranges::replace(line, '\t', ' ');
  return line;
}

std::vector<std::string> visibleLines(std::string_view text) {
  const std::string clean = sanitized(text);
  auto lines = split(clean, '\n');
  while (!lines.empty() && trimmed(lines.back()).empty()) lines.pop_back();
  return {lines.begin(), lines.end()};
}

std::vector<std::string> boundedLines(std::string_view text, std::size_t most) {
  auto lines = visibleLines(text);
  // One line too many is shown rather than counted.
  const std::size_t shown = lines.size() > most + 1 ? most : lines.size();
  const std::size_t left = lines.size() - shown;
  lines.resize(shown);
  for (auto& line : lines) {
    const auto part = firstCharacters(line, longestLine).size();
    if (part < line.size()) line.replace(part, std::string::npos, "…");
  }
  if (left > 0) lines.push_back(fmt::format("… {} more lines", left));
  return lines;
}

std::string cutTo(std::string_view line, std::size_t columns, bool cutsFront) {
  if (columnCount(line) <= columns) return std::string(line);
  if (columns == 0) return "";
  if (cutsFront) return "…" + std::string(lastColumns(line, columns - 1));
  std::size_t room = columns - 1;
  std::string_view kept = firstColumns(line, room);
  while (kept.ends_with(' ')) kept.remove_suffix(1);
  return std::string(kept) + "…";
}

}  // namespace vantrell::text
