#include "shell/terminal/answer_lines.h"

#include <algorithm>
#include <fmt/format.h>

#include "platform/text.h"
#include "shell/terminal/terminal_text.h"
#include "shell/terminal/text_table.h"

namespace vantrell::shell {

namespace {

using B = ResponseBlock;

constexpr std::size_t columnsPerDepth = 2;
constexpr std::size_t narrowest = 20;
constexpr std::size_t leastOfCell = 5;
constexpr std::size_t widestRule = 40;

/// Items stand close together, and so do lines of one quote; everything else stands apart.
bool isListItem(const B& block) {
  return std::holds_alternative<B::Bullet>(block.kind) ||
         std::holds_alternative<B::Numbered>(block.kind) ||
         std::holds_alternative<B::Checklist>(block.kind);
}

bool standsApart(const B& block, const B& before) {
  const bool isQuote =
      std::holds_alternative<B::Quote>(block.kind) && std::holds_alternative<B::Quote>(before.kind);
  return !isQuote && !(isListItem(block) && isListItem(before));
}

/// Lays out one block after the other.
class Layout {
 public:
  Layout(const TerminalStyle& style, std::size_t columns)
      : style_(style), columns_(std::max(columns, narrowest)) {}

  void add(const B& block) {
    text_ = &block.text;
    std::visit(*this, block.kind);
  }
  void addEmptyLine() { lines_.emplace_back(); }
  std::vector<std::string> lines() && { return std::move(lines_); }

  void operator()(const B::Heading&) {
    for (const auto& line : wrapped(*text_, columns_)) lines_.push_back(style_.bold(line));
  }
  void operator()(const B::Bullet& item) { addItem("•", item.depth); }
  void operator()(const B::Numbered& item) { addItem(fmt::format("{}.", item.number), item.depth); }
  void operator()(const B::Checklist& item) { addItem(item.checked ? "✓" : "○", item.depth); }
  void operator()(const B::Code& code) {
    if (code.language) lines_.push_back(style_.dim("  " + onOneLine(*code.language)));
    const std::string clean = sanitized(*text_);
    for (const auto line : text::split(clean, '\n')) {
      lines_.push_back(line.empty() ? "" : style_.cyan(fmt::format("  {}", line)));
    }
  }
  void operator()(const ResponseTable& table) {
    std::vector<std::string> headings;
    for (const auto& header : table.headers) headings.push_back(onOneLine(header));
    std::vector<TableColumn> columns;
    for (const auto& heading : headings)
      columns.push_back({.heading = heading, .least = leastOfCell});
    TextTable shown(std::move(columns));
    for (const auto& row : table.rows) {
      std::vector<TableCell> cells;
      for (const auto& cell : row) cells.push_back({cell});
      shown.add(std::move(cells));
    }
    std::string text = shown.text(style_, columns_);
    if (text.ends_with('\n')) text.pop_back();
    for (const auto line : text::split(text, '\n')) lines_.emplace_back(line);
  }
  void operator()(const B::Paragraph&) {
    for (auto& line : wrapped(*text_, columns_)) lines_.push_back(std::move(line));
  }
  void operator()(const B::Quote&) {
    for (const auto& line : wrapped(*text_, columns_ - 2))
      lines_.push_back(style_.dim("│ " + line));
  }
  void operator()(const B::Divider&) {
    std::string rule;
    for (std::size_t i = 0; i < std::min(columns_, widestRule); ++i) rule += "─";
    lines_.push_back(style_.dim(rule));
  }

 private:
  void addItem(const std::string& mark, int depth) {
    const std::size_t indent = static_cast<std::size_t>(depth) * columnsPerDepth;
    const std::size_t hanging = indent + text::columnCount(mark) + 1;
    const std::size_t room =
        columns_ > hanging + narrowest / 2 ? columns_ - hanging : narrowest / 2;
    std::string before = std::string(indent, ' ') + mark + " ";
    for (const auto& line : wrapped(*text_, room)) {
      lines_.push_back(std::exchange(before, std::string(hanging, ' ')) + line);
    }
  }

  const TerminalStyle& style_;
  std::size_t columns_;
  const std::string* text_ = nullptr;
  std::vector<std::string> lines_;
};

}  // namespace

std::vector<std::string> wrapped(std::string_view text, std::size_t columns) {
  const std::string line = onOneLine(text);
  std::vector<std::string> lines;
  std::string_view rest = line;
  while (true) {
    std::size_t filled = columns;
    std::string_view part = text::firstColumns(rest, filled);
    if (part.size() == rest.size()) {
      lines.emplace_back(rest);
      return lines;
    }
    const bool endsAtBlank = rest[part.size()] == ' ';
    const std::size_t blank = endsAtBlank ? part.size() : part.rfind(' ');
    if (blank != part.npos && blank > 0) part = part.substr(0, blank);
    // A character wider than the line would never leave it.
    if (part.empty()) part = text::firstCharacters(rest, 1);
    rest.remove_prefix(part.size());
    while (part.ends_with(' ')) part.remove_suffix(1);
    lines.emplace_back(part);
    rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));
    if (rest.empty()) return lines;
  }
}

std::vector<std::string> answerLines(const std::vector<ResponseBlock>& blocks,
                                     const TerminalStyle& style, std::size_t columns) {
  Layout layout(style, columns);
  for (std::size_t i = 0; i < blocks.size(); ++i) {
    if (i > 0 && standsApart(blocks[i], blocks[i - 1])) layout.addEmptyLine();
    layout.add(blocks[i]);
  }
  return std::move(layout).lines();
}

}  // namespace vantrell::shell
