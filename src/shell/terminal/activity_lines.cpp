#include "shell/terminal/activity_lines.h"

#include <fmt/format.h>

#include "shell/terminal/terminal_text.h"

namespace vantrell::shell {

namespace {

/// What the record of a tool call says when an update came without a title.
constexpr std::string_view namelessTool = "Using a tool";

std::string_view sign(std::string_view status) {
  if (status == "completed") return "✓";
  if (status == "failed" || status == "cancelled") return "✗";
  if (status == "in_progress") return "▸";
  return "○";
}

}  // namespace

bool hasEnded(std::string_view status) {
  return status != "pending" && status != "in_progress";
}

std::string toolLine(const ChatEntry& entry, std::string_view title, const TerminalStyle& style,
                     int columns) {
  const std::string status = entry.status.value_or("pending");
  const bool needsWord = status != "completed" && hasEnded(status);
  const std::string word = needsWord ? fmt::format(" ({})", onOneLine(status)) : std::string();
  const int room = columns - 3 - static_cast<int>(word.size());
  const std::string text = fmt::format("{} {}{}", sign(status), fitted(title, room), word);
  if (status == "completed") return style.green(text);
  return hasEnded(status) ? style.red(text) : style.cyan(text);
}

std::string planLine(const PlanEntry& entry, const TerminalStyle& style, int columns) {
  const std::string text =
      fmt::format("  {} {}", sign(entry.status), fitted(onOneLine(entry.content), columns - 5));
  if (entry.status == "completed") return style.green(text);
  return entry.status == "in_progress" ? style.cyan(text) : text;
}

std::string ToolTitles::best(const ChatEntry& entry) {
  std::string title = onOneLine(entry.title.value_or(""));
  if (title.empty() || title == namelessTool) {
    const auto known = titles_.find(entry.id);
    return known == titles_.end() ? std::string(namelessTool) : known->second;
  }
  titles_.insert_or_assign(entry.id, title);
  return title;
}

}  // namespace vantrell::shell
