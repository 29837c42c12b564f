#include "shell/terminal/terminal_style.h"

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

terminal::Size TerminalStyle::size() const {
  return terminal::size(descriptor_).value_or(terminal::Size{.columns = 80, .rows = 24});
}

std::string TerminalStyle::wrapped(std::string_view code, std::string_view text) const {
  if (!isLive_ || text.empty()) return std::string(text);
  return fmt::format("\x1b[{}m{}\x1b[0m", code, text);
}

}  // namespace vantrell::shell
