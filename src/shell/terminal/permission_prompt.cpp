#include "shell/terminal/permission_prompt.h"

#include <fmt/format.h>

#include "shell/terminal/terminal_text.h"

namespace vantrell::shell {

namespace {
constexpr std::size_t detailLinesShown = 20;
}

std::vector<std::string> permissionLines(const PermissionRequest& request,
                                         const TerminalStyle& style) {
  const auto card = views::approvalCard(request);
  std::vector<std::string> lines = {style.yellow("?") + " " + style.bold(card.title)};
  for (const auto& each : boundedLines(request.detail, detailLinesShown)) {
    lines.push_back("    " + style.dim(each));
  }
  for (std::size_t i = 0; i < card.options.size(); ++i) {
    lines.push_back(
        fmt::format("  {}  {}", style.bold(std::to_string(i + 1)), card.options[i].name));
  }
  return lines;
}

std::string answerPrompt(const PermissionRequest& request) {
  if (request.options.size() < 2) return "Your answer (1): ";
  return fmt::format("Your answer (1-{}): ", request.options.size());
}

}  // namespace vantrell::shell
