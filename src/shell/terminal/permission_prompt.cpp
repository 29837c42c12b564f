#include "shell/terminal/permission_prompt.h"

#include <charconv>
#include <fmt/format.h>

#include "platform/text/text.h"
#include "shell/terminal/terminal_text.h"

namespace vantrell::shell {

namespace {
constexpr std::size_t detailLinesShown = 20;
}

std::vector<std::string> permissionLines(const PermissionRequest& request,
                                         const TerminalStyle& style) {
  std::vector<std::string> lines;
  lines.push_back(style.yellow("?") + " " + style.bold(onOneLine(request.title)));
  for (const auto& each : boundedLines(request.detail, detailLinesShown)) {
    lines.push_back("    " + style.dim(each));
  }
  for (std::size_t i = 0; i < request.options.size(); ++i) {
    lines.push_back(fmt::format("  {}  {}", style.bold(std::to_string(i + 1)),
                                onOneLine(request.options[i].name)));
  }
  return lines;
}

std::string answerPrompt(const PermissionRequest& request) {
  if (request.options.size() < 2) return "Your answer (1): ";
  return fmt::format("Your answer (1-{}): ", request.options.size());
}

std::expected<const PermissionOption*, std::string> readAnswer(const PermissionRequest& request,
                                                               std::string_view line) {
  const std::string_view word = text::trimmed(line);
  std::size_t number = 0;
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
  const bool isNumber = error == std::errc() && end == word.data() + word.size();
  if (isNumber && number >= 1 && number <= request.options.size()) {
    return &request.options[number - 1];
  }
  const auto named = std::ranges::find(request.options, word, &PermissionOption::id);
  if (named != request.options.end()) return &*named;
  const std::string way =
      request.options.size() < 2
          ? std::string("Answer with 1.")
          : fmt::format("Answer with a number from 1 to {}.", request.options.size());
  if (word.empty()) return std::unexpected(way);
  return std::unexpected(fmt::format("\"{}\" is none of the options. {}",
                                     onOneLine(text::firstCharacters(word, 40)), way));
}

const PermissionOption* optionOfKind(const PermissionRequest& request, std::string_view kind) {
  const auto found = std::ranges::find(request.options, kind, &PermissionOption::kind);
  return found == request.options.end() ? nullptr : &*found;
}

}  // namespace vantrell::shell
