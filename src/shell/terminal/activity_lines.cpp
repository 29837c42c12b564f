#include "shell/terminal/activity_lines.h"

#include <fmt/format.h>

#include "shell/terminal/terminal_text.h"
#include "views/transcript_rows.h"

namespace vantrell::shell {

namespace {

/// What the record of a tool call says when an update came without a title.
constexpr std::string_view namelessTool = "Using a tool";

using views::Progress;

std::string coloured(const std::string& text, Progress progress, const TerminalStyle& style) {
  switch (progress) {
    case Progress::completed: return style.green(text);
    case Progress::failed: return style.red(text);
    default: return style.cyan(text);
  }
}

}  // namespace

bool hasEnded(std::string_view status) {
  return !isOpenToolStatus(status);
}

std::string toolLine(const ChatEntry& entry, std::string_view title, const TerminalStyle& style,
                     int columns) {
  const auto row = views::toolRow(entry);
  const bool needsWord = row.progress == Progress::failed;
  const std::string word = needsWord ? fmt::format(" ({})", row.status) : std::string();
  const int room = columns - 3 - static_cast<int>(word.size());
  return coloured(fmt::format("{} {}{}", views::sign(row.progress), fitted(title, room), word),
                  row.progress, style);
}

std::string planLine(const PlanEntry& entry, const TerminalStyle& style, int columns) {
  const auto row = views::planRow(entry);
  const std::string text =
      fmt::format("  {} {}", views::sign(row.progress), fitted(row.words, columns - 5));
  return row.progress == Progress::pending ? text : coloured(text, row.progress, style);
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
