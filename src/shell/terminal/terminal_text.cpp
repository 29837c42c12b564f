#include "shell/terminal/terminal_text.h"

#include "platform/text/utf8.h"

namespace vantrell::shell {

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
