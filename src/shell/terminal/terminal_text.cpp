#include "shell/terminal/terminal_text.h"

#include <algorithm>

#include "platform/text/text.h"

namespace vantrell::shell {

namespace {

std::string_view lastColumns(std::string_view text, std::size_t columns) {
  const std::size_t total = text::columnCount(text);
  for (std::size_t skipped = total - std::min(total, columns);; ++skipped) {
    std::size_t filled = skipped;
    const auto rest = text.substr(text::firstColumns(text, filled).size());
    if (text::columnCount(rest) <= columns) return rest;
  }
}

}  // namespace

std::string cutTo(std::string_view line, std::size_t columns, bool cutsFront) {
  if (text::columnCount(line) <= columns) return std::string(line);
  if (columns == 0) return "";
  if (cutsFront) return "…" + std::string(lastColumns(line, columns - 1));
  std::size_t room = columns - 1;
  std::string_view kept = text::firstColumns(line, room);
  while (kept.ends_with(' ')) kept.remove_suffix(1);
  return std::string(kept) + "…";
}

}  // namespace vantrell::shell
