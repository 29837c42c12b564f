#include "shell/terminal/line_screen.h"

#include <utility>

namespace vantrell::shell {

void LineScreen::put(std::string_view lines) {
  if (std::exchange(isStatusShown_, false)) console_.write("\r\x1b[K");
  console_.write(prompt_.empty() ? std::string(lines) : fmt::format("\n{}{}", lines, prompt_));
}

void LineScreen::status(std::string_view text) {
  if (!style().isLive() || !prompt_.empty()) return;
  const int columns = TerminalStyle::usable(style().size().columns);
  console_.write(fmt::format("\r\x1b[K{}\r", style().dim(fitted(onOneLine(text), columns))));
  isStatusShown_ = true;
}

void LineScreen::prompt(std::string text) {
  interrupted();  // one that was withdrawn has no end of line yet
  prompt_ = std::move(text);
  console_.write(prompt_);
}

void LineScreen::interrupted() {
  if (std::exchange(isStatusShown_, false)) console_.write("\r\x1b[K");
  if (!std::exchange(prompt_, {}).empty()) console_.write("\n");
}

}  // namespace vantrell::shell
