#include "shell/terminal/terminal_text.h"

#include "platform/text/utf8.h"

namespace vantrell::shell {

namespace {

/// Bytes of the look (ESC [ numbers m) that the text begins with.
std::size_t lookAtFront(std::string_view text) {
  if (!text.starts_with("\x1b[")) return 0;
  const std::size_t end = text.find_first_not_of("0123456789;", 2);
  return end != text.npos && text[end] == 'm' ? end + 1 : 0;
}

}  // namespace

std::string withLooksOnly(std::string_view text) {
  std::string out;
  while (!text.empty()) {
    const std::size_t look = lookAtFront(text);
    const std::size_t end = look > 0 ? look : std::min(text.find('\x1b', 1), text.size());
    out += look > 0 ? std::string(text.substr(0, look)) : sanitized(text.substr(0, end));
    text.remove_prefix(end);
  }
  return out;
}

std::string fitted(std::string_view text, int columns) {
  int used = 0;
  std::size_t cut = 0;  // where the ellipsis would go
  for (std::size_t at = 0; at < text.size();) {
    const auto sequence = utf8::sequenceAt(text.data() + at, text.data() + text.size());
    used += sequence.length == 1 ? 1 : 2;
    if (used > columns) return std::string(text.substr(0, cut)) + (columns > 1 ? "…" : "");
    at += sequence.length;
    if (used + 2 <= columns) cut = at;
  }
  return std::string(text);
}

}  // namespace vantrell::shell
