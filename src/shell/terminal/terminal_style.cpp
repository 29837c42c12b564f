#include "shell/terminal/terminal_style.h"

#include <algorithm>
#include <fmt/format.h>

namespace vantrell::shell {

TerminalStyle TerminalStyle::of(int descriptor, const Environment& environment) {
  const auto value = [&](std::string_view name) {
    const auto found = environment.find(name);
    return found == environment.end() ? std::string_view() : std::string_view(found->second);
  };
  const auto kind = value("TERM");
  // no-color.org: any value but the empty one counts.
  const bool isLive = terminal::isTerminal(descriptor) && value("NO_COLOR").empty() &&
                      !kind.empty() && kind != "dumb";
  return {descriptor, isLive};
}

std::size_t TerminalStyle::columns() const {
  if (!isLive_) return 1000;
  const auto size = terminal::size(descriptor_);
  return static_cast<std::size_t>(std::max((size ? size->columns : 80) - 1, 20));
}

std::string TerminalStyle::wrapped(std::string_view code, std::string_view text) const {
  if (!isLive_ || text.empty()) return std::string(text);
  return fmt::format("\x1b[{}m{}\x1b[0m", code, text);
}

std::string styled(const InlineText& text, std::string_view around, std::size_t begin,
                   std::size_t end) {
  const auto lookAt = [&](std::size_t at) {
    return at < text.looks.size() ? text.looks[at] : '\0';
  };
  std::string out;
  for (end = std::min(end, text.text.size()); begin < end;) {
    const char look = lookAt(begin);
    std::size_t next = begin;
    while (next < end && lookAt(next) == look) ++next;
    std::string codes((look & InlineText::bold) != 0 ? "1" : around);
    if ((look & InlineText::code) != 0) codes += codes.empty() ? "36" : ";36";
    const auto part = std::string_view(text.text).substr(begin, next - begin);
    out += codes.empty() ? std::string(part) : fmt::format("\x1b[{}m{}\x1b[0m", codes, part);
    begin = next;
  }
  return out;
}

}  // namespace vantrell::shell
