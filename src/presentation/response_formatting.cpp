#include "presentation/response_formatting.h"

#include <algorithm>
#include <charconv>

#include "platform/text/text.h"
#include "presentation/dense_prose.h"
#include "presentation/white_space.h"

namespace vantrell::ResponseFormatting {

namespace {

using white::trimmedOfBlanks;

constexpr int deepest = 6;
constexpr int columnsPerDepth = 2;
constexpr int columnsPerTab = 4;
constexpr std::size_t lowestLevel = 6;
constexpr std::string_view fence = "```";

/// Hands out one line after the other.
class LineReader {
 public:
  explicit LineReader(std::string_view text) : text_(text) {}

  bool isAtEnd() const { return at_ > text_.size(); }
  /// Where the next line begins.
  std::size_t at() const { return at_; }
  std::string_view peek() const {
    return isAtEnd() ? std::string_view() : text_.substr(at_, text_.find('\n', at_) - at_);
  }
  std::string_view take() {
    const std::string_view line = peek();
    at_ += line.size() + 1;
    return line;
  }

 private:
  std::string_view text_;
  std::size_t at_ = 0;
};

using Cells = std::vector<std::string_view>;

/// Empty when the line is not a row.
Cells cellsOf(std::string_view line) {
  Cells cells;
  if (!line.contains('|')) return cells;
  line = trimmedOfBlanks(line);
  const std::size_t begin = std::min(line.find_first_not_of('|'), line.size());
  line = line.substr(begin, line.find_last_not_of('|') + 1 - begin);
  if (!line.contains('|')) return cells;
  for (std::size_t pipe = 0; pipe != line.npos; line.remove_prefix(pipe + 1)) {
    pipe = line.find('|');
    cells.push_back(trimmedOfBlanks(line.substr(0, pipe)));
    if (pipe == line.npos) break;
  }
  return cells;
}

bool isSeparator(std::string_view line, std::size_t cells) {
  // Most lines below a row are rows of text.
  const std::string_view trimmed = trimmedOfBlanks(line);
  if (trimmed.empty() || !std::string_view("-:|").contains(trimmed[0])) return false;
  const Cells found = cellsOf(trimmed);
  return found.size() == cells && std::ranges::all_of(found, [](std::string_view cell) {
           const std::size_t begin = std::min(cell.find_first_not_of(':'), cell.size());
           cell = cell.substr(begin, cell.find_last_not_of(':') + 1 - begin);
           return cell.size() >= 3 && cell.find_first_not_of('-') == cell.npos;
         });
}

bool isDivider(std::string_view trimmed) {
  const char mark = trimmed[0];
  if (mark != '-' && mark != '*' && mark != '_') return false;
  if (trimmed.find_first_not_of(std::string{mark, ' '}) != trimmed.npos) return false;
  return std::ranges::count(trimmed, mark) >= 3;
}

std::vector<std::string> copied(const Cells& cells) {
  return {cells.begin(), cells.end()};
}

/// The block of a line that makes one by itself; nullopt for a line of a paragraph.
std::optional<ResponseBlock> singleLine(std::string_view line, std::string_view trimmed) {
  using B = ResponseBlock;
  const auto block = [](B::Kind kind, std::string text) {
    return B{.id = {}, .kind = std::move(kind), .text = std::move(text)};
  };
  if (auto found = heading(trimmed)) {
    return block(B::Heading{found->level}, std::move(found->text));
  }
  if (isDivider(trimmed)) return block(B::Divider{}, "");
  if (auto item = bullet(line)) {
    if (auto box = checklist(item->text)) {
      return block(B::Checklist{box->checked, item->depth}, std::move(box->text));
    }
    return block(B::Bullet{item->depth}, std::move(item->text));
  }
  if (auto item = numberedItem(line)) {
    return block(B::Numbered{item->number, item->depth}, std::move(item->text));
  }
  if (trimmed[0] == '>') return block(B::Quote{}, std::string(trimmedOfBlanks(trimmed.substr(1))));
  return std::nullopt;
}

}  // namespace

std::vector<ResponseBlock> blocks(std::string_view text) {
  std::vector<ResponseBlock> found;
  appendBlocks(structureDenseResponse(text), found);
  std::vector<Uuid> ids(found.size());
  Uuid::random(ids);
  for (std::size_t i = 0; i < ids.size(); ++i) found[i].id = ids[i];
  return found;
}

Place appendBlocks(std::string_view text, std::vector<ResponseBlock>& blocks) {
  std::string paragraph;
  bool isInParagraph = false;
  const auto add = [&](ResponseBlock::Kind kind, std::string block) {
    blocks.push_back({.id = {}, .kind = std::move(kind), .text = std::move(block)});
  };
  const auto flush = [&] {
    const std::string_view whole = text::trimmed(paragraph);
    if (!whole.empty()) add(ResponseBlock::Paragraph{}, std::string(whole));
    paragraph.clear();
    isInParagraph = false;
  };
  Place settled{0, blocks.size()};
  // Where the block of the line before begins: the next line may still belong to it, or make a
  // table of it.
  Place previous = settled;
  LineReader lines(text);
  while (!text.empty() && !lines.isAtEnd()) {
    settled = previous;
    const std::size_t begin = lines.at();
    const std::string_view line = lines.take();
    const std::string_view trimmed = trimmedOfBlanks(line);
    const auto beginBlock = [&] {
      flush();
      previous = {begin, blocks.size()};
    };
    if (trimmed.starts_with(fence)) {
      beginBlock();
      ResponseBlock::Code code;
      const auto language = trimmedOfBlanks(trimmed.substr(fence.size()));
      if (!language.empty()) code.language = language;
      std::string inside;
      std::string_view between;
      bool isClosed = false;
      while (!isClosed && !lines.isAtEnd()) {
        settled = previous;
        const std::string_view next = lines.take();
        isClosed = trimmedOfBlanks(next).starts_with(fence);
        if (!isClosed) inside.append(std::exchange(between, "\n")).append(next);
      }
      add(std::move(code), std::move(inside));
      if (isClosed) previous = {lines.at(), blocks.size()};
      continue;
    }
    if (trimmed.empty()) {
      flush();
      previous = {lines.at(), blocks.size()};
      continue;
    }
    if (const Cells headers = cellsOf(line);
        !headers.empty() && isSeparator(lines.peek(), headers.size())) {
      beginBlock();
      lines.take();
      ResponseTable table{.headers = copied(headers), .rows = {}};
      while (!lines.isAtEnd()) {
        settled = previous;  // the separator is whole
        const Cells row = cellsOf(lines.peek());
        if (row.size() != headers.size()) break;
        table.rows.push_back(copied(row));
        lines.take();
      }
      add(std::move(table), "");
      continue;
    }
    if (auto block = singleLine(line, trimmed)) {
      beginBlock();
      blocks.push_back(*std::move(block));
      continue;
    }
    if (!isInParagraph) beginBlock();
    if (isInParagraph) paragraph += ' ';
    paragraph += trimmed;
    isInParagraph = true;
  }
  flush();
  return settled;
}

std::string withLineFeeds(std::string_view text) {
  std::string normal;
  normal.reserve(text.size());
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find('\r', at), text.size());
    normal.append(text, at, end - at);
    if (end < text.size()) normal += '\n';
    at = end + (text.substr(end).starts_with("\r\n") ? 2 : 1);
  }
  return normal;
}

bool hasStructure(std::string_view text) {
  constexpr int linesOfStructure = 4;
  if (text.contains("\n\n") || std::ranges::count(text, '\n') >= linesOfStructure - 1) return true;
  for (LineReader lines(text); !lines.isAtEnd();) {
    const std::string_view line = trimmedOfBlanks(lines.take());
    for (const std::string_view mark : {"#", "- ", "* ", ">", "|", "```"}) {
      if (line.starts_with(mark)) return true;
    }
  }
  return false;
}

std::string structureDenseResponse(std::string_view text) {
  const std::string fed = withLineFeeds(text);
  const std::string_view normalized = text::trimmed(fed);
  if (normalized.size() > dense::longestPlain && !hasStructure(normalized) &&
      text::firstCharacters(normalized, dense::longestPlain).size() < normalized.size()) {
    return dense::brokenUp(normalized);
  }
  return std::string(normalized);
}

std::optional<std::vector<std::string>> tableCells(std::string_view line) {
  const Cells cells = cellsOf(line);
  if (cells.empty()) return std::nullopt;
  return copied(cells);
}

std::optional<Heading> heading(std::string_view trimmedLine) {
  const std::size_t level = std::min(trimmedLine.find_first_not_of('#'), trimmedLine.size());
  if (level < 1 || level > lowestLevel || !trimmedLine.substr(level).starts_with(' ')) {
    return std::nullopt;
  }
  return Heading{static_cast<int>(level), std::string(trimmedLine.substr(level + 1))};
}

int indentationDepth(std::string_view line) {
  int columns = 0;
  for (const char c : line) {
    if ((c != ' ' && c != '\t') || columns >= deepest * columnsPerDepth) break;
    columns += c == '\t' ? columnsPerTab : 1;
  }
  return std::min(columns / columnsPerDepth, deepest);
}

std::optional<Bullet> bullet(std::string_view line) {
  const std::string_view trimmed = trimmedOfBlanks(line);
  for (const std::string_view mark : {"- ", "* ", "+ ", "\xE2\x80\xA2 "}) {
    if (!trimmed.starts_with(mark)) continue;
    const auto text = trimmedOfBlanks(trimmed.substr(mark.size()));
    return Bullet{indentationDepth(line), std::string(text)};
  }
  return std::nullopt;
}

std::optional<Checklist> checklist(std::string_view text) {
  if (text.size() < 4 || text[0] != '[' || text[2] != ']') return std::nullopt;
  const std::size_t blank = white::at(text, 3);
  if (blank == 0 || !std::string_view(" xX").contains(text[1])) return std::nullopt;
  return Checklist{text[1] != ' ', std::string(trimmedOfBlanks(text.substr(3 + blank)))};
}

/// "^(\d+)[.)]\s+(.+)$", where "." matches no line break (a line may have those that are not line
/// feeds) and "$" also matches before one that ends the line. Digits of other scripts make no item:
/// the number would lose them.
std::optional<NumberedItem> numberedItem(std::string_view line) {
  const std::string_view trimmed = trimmedOfBlanks(line);
  std::int64_t number = 0;
  const char* const lineEnd = trimmed.data() + trimmed.size();
  if (trimmed.empty() || trimmed[0] < '0' || trimmed[0] > '9') return std::nullopt;
  const auto [digits, error] = std::from_chars(trimmed.data(), lineEnd, number);
  if (error != std::errc() || digits == lineEnd || (*digits != '.' && *digits != ')')) {
    return std::nullopt;
  }
  const std::string_view rest(digits + 1, lineEnd);
  const auto lastCharacter = [&](std::size_t end) {
    while (end > 1 && utf8::isContinuation(rest[end - 1])) --end;
    return end - 1;
  };
  std::size_t begin = white::skip(rest, 0, white::at);
  if (begin == 0) return std::nullopt;
  std::size_t end = rest.size();
  if (white::breakAt(rest, lastCharacter(end)) != 0) end = lastCharacter(end);
  // Of nothing but white space the expression leaves the last character for the text.
  if (begin >= end && end > 0) begin = lastCharacter(end);
  if (begin == 0 || begin >= end) return std::nullopt;
  for (std::size_t at = begin; at < end; ++at) {
    if (white::breakAt(rest, at) != 0) return std::nullopt;
  }
  return NumberedItem{number, indentationDepth(line), std::string(rest.substr(begin, end - begin))};
}

}  // namespace vantrell::ResponseFormatting
