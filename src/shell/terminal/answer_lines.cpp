#include "shell/terminal/answer_lines.h"

#include <algorithm>
#include <fmt/format.h>

#include "platform/text/text.h"
#include "platform/text/utf8.h"
#include "presentation/response_formatting.h"
#include "presentation/white_space.h"
#include "shell/terminal/inline_marks.h"
#include "shell/terminal/terminal_text.h"
#include "shell/terminal/text_table.h"

namespace vantrell::shell {

namespace {

using B = ResponseBlock;
using Look = std::string (TerminalStyle::*)(std::string_view) const;

constexpr std::size_t columnsPerDepth = 2;
constexpr std::size_t narrowest = 20;
constexpr std::size_t leastOfCell = 5;
constexpr std::size_t widestRule = 40;
constexpr std::string_view codeIndent = "  ";
constexpr std::size_t columnsPerTab = 8;

/// How much of a text without tabs and line feeds goes on one line, and where the next one begins.
struct Break {
  std::size_t end;
  std::size_t next;
  std::size_t overflow;  // the first byte that does not fit
};

Break breakLine(std::string_view text, std::size_t columns) {
  const std::size_t fits = text::firstColumns(text, columns).size();
  if (fits == text.size()) return {fits, fits, fits};
  std::size_t end = text.rfind(' ', fits);
  if (end == text.npos || end == 0) {
    // A character wider than the line would never leave it.
    end = fits > 0 ? fits : utf8::sequenceAt(text.data(), text.data() + text.size()).length;
  }
  const std::size_t next = std::min(text.find_first_not_of(' ', end), text.size());
  return {text.find_last_not_of(' ', end - 1) + 1, next, fits};
}

std::string withoutTabs(std::string_view line) {
  std::string shown;
  std::size_t column = 0;
  while (!line.empty()) {
    const std::string_view part = line.substr(0, line.find('\t'));
    line.remove_prefix(part.size());
    column += text::columnCount(part);
    shown += part;
    if (line.empty()) break;
    const std::size_t blanks = columnsPerTab - column % columnsPerTab;
    shown.append(blanks, ' ');
    column += blanks;
    line.remove_prefix(1);
  }
  return shown;
}

/// Lays out one block.
class Layout {
 public:
  Layout(const B& block, std::size_t from, bool isBegun, const TerminalStyle& style,
         std::size_t columns)
      : block_(block),
        from_(std::min(from, endOf(block))),
        isBegun_(isBegun),
        style_(style),
        columns_(std::max(columns, narrowest)) {}

  std::vector<AnswerLine> lines() && {
    std::visit(*this, block_.kind);
    return std::move(lines_);
  }

  void operator()(const B::Heading&) { addText("", "", &TerminalStyle::bold); }
  void operator()(const B::Bullet& item) { addItem("•", item.depth); }
  void operator()(const B::Numbered& item) { addItem(fmt::format("{}.", item.number), item.depth); }
  void operator()(const B::Checklist& item) { addItem(item.checked ? "✓" : "○", item.depth); }
  void operator()(const B::Paragraph&) { addText("", "", nullptr); }
  void operator()(const B::Quote&) { addText("│ ", "│ ", &TerminalStyle::dim); }
  void operator()(const B::Divider&) {
    std::string rule;
    for (std::size_t i = 0; i < std::min(columns_, widestRule); ++i) rule += "─";
    if (!isBegun_) lines_.push_back({.text = style_.dim(rule)});
  }
  void operator()(const B::Code& code) {
    const std::string_view text = block_.text;
    if (!isBegun_ && code.language) {
      lines_.push_back({.text = style_.dim(std::string(codeIndent) + *code.language)});
    }
    const auto endOfLine = [&](std::size_t at) {
      return std::min(text.find('\n', at), text.size());
    };
    std::size_t at = from_;
    // What is left of a line that has been shown; of one that was cut it may be more than blanks.
    if (at > 0 && text[at - 1] != '\n' && white::skip(text, at, white::blankAt) >= endOfLine(at)) {
      at = std::min(endOfLine(at) + 1, text.size());
    }
    while (at < text.size()) {
      const std::size_t end = endOfLine(at);
      const std::size_t shownEnd = white::trimEnd(text, at, end, white::blankAt);
      const std::string shown = withoutTabs(text.substr(at, shownEnd - at));
      at = std::min(end + 1, text.size());
      const std::string indented = shown.empty() ? "" : std::string(codeIndent) + shown;
      lines_.push_back({.text = style_.cyan(indented), .end = at});
    }
  }
  void operator()(const ResponseTable& table) {
    std::vector<std::string> headings;
    for (const auto& header : table.headers) headings.push_back(isBegun_ ? "" : onOneLine(header));
    std::vector<TableColumn> columns;
    for (const auto& heading : headings) {
      columns.push_back({.heading = heading, .least = leastOfCell});
    }
    TextTable shown(std::move(columns));
    for (std::size_t i = std::max<std::size_t>(from_, 1) - 1; i < table.rows.size(); ++i) {
      std::vector<TableCell> cells;
      for (const auto& cell : table.rows[i]) cells.push_back({.text = cell, .mayHaveMarks = true});
      shown.add(std::move(cells));
    }
    const std::string text = shown.text(style_, columns_);
    for (const auto line : text::split(std::string_view(text), '\n')) {
      lines_.push_back({.text = std::string(line), .end = endOf(block_)});
    }
    lines_.pop_back();  // behind the last line feed
  }

 private:
  void addText(std::string_view first, std::string_view others, Look look) {
    std::string source = block_.text.substr(from_);
    std::ranges::replace(source, '\t', ' ');
    const InlineText shown = style_.isLive() ? withoutMarks(source) : asWritten(source);
    const auto around = look == &TerminalStyle::bold  ? InlineText::Around::bold
                        : look == &TerminalStyle::dim ? InlineText::Around::dim
                                                      : InlineText::Around::plain;
    const std::string_view text = shown.text;
    const std::size_t indent = std::max(text::columnCount(first), text::columnCount(others));
    const std::size_t room = std::max(columns_ - std::min(indent, columns_), narrowest / 2);
    std::size_t at = std::min(text.find_first_not_of(' '), text.size());
    while (at < text.size() || (!isBegun_ && lines_.empty())) {
      const Break part = breakLine(text.substr(at), room);
      const std::string_view prefix = isBegun_ || !lines_.empty() ? others : first;
      const std::string line = std::string(prefix) + shown.styled(around, at, at + part.end);
      const bool isSettled = shown.sourceOf(at + part.overflow) < shown.settled;
      at += part.next;
      lines_.push_back({.text = look ? (style_.*look)(line) : line,
                        .end = from_ + shown.sourceOf(at),
                        .endsPlain = shown.lookAt(at) == InlineLook(),
                        .isSettled = isSettled});
    }
  }
  void addItem(const std::string& mark, int depth) {
    const std::string indent(static_cast<std::size_t>(depth) * columnsPerDepth, ' ');
    addText(indent + mark + " ", indent + std::string(text::columnCount(mark) + 1, ' '), nullptr);
  }

  const B& block_;
  std::size_t from_;
  bool isBegun_;
  const TerminalStyle& style_;
  std::size_t columns_;
  std::vector<AnswerLine> lines_;
};

template <typename... Kinds>
bool isOneOf(const B& block) {
  return (std::holds_alternative<Kinds>(block.kind) || ...);
}

}  // namespace

std::vector<AnswerLine> blockLines(const ResponseBlock& block, std::size_t from, bool isBegun,
                                   const TerminalStyle& style, std::size_t columns) {
  return Layout(block, from, isBegun, style, columns).lines();
}

std::size_t endOf(const ResponseBlock& block) {
  const auto* table = std::get_if<ResponseTable>(&block.kind);
  return table ? table->rows.size() + 1 : block.text.size();
}

bool standsApart(const ResponseBlock& block, const ResponseBlock& before) {
  const auto areBoth = [&](bool (*is)(const B&)) { return is(block) && is(before); };
  return !areBoth(isOneOf<B::Quote>) && !areBoth(isOneOf<B::Bullet, B::Numbered, B::Checklist>);
}

std::vector<std::string> answerLines(std::string_view text, const TerminalStyle& style,
                                     std::size_t columns) {
  const auto blocks = ResponseFormatting::blocks(sanitized(text));
  std::vector<std::string> lines;
  for (std::size_t i = 0; i < blocks.size(); ++i) {
    auto block = blockLines(blocks[i], 0, false, style, columns);
    const bool isFirst = lines.empty() || block.empty();
    if (!isFirst && standsApart(blocks[i], blocks[i - 1])) lines.emplace_back();
    for (auto& line : block) lines.push_back(std::move(line.text));
  }
  return lines;
}

}  // namespace vantrell::shell
