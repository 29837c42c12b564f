#include "shell/terminal/answer_stream.h"

#include <algorithm>
#include <fmt/format.h>

#include "presentation/white_space.h"
#include "shell/terminal/terminal_pieces.h"

namespace vantrell::shell {

namespace {

using Stage = AnswerPlace::Stage;

constexpr char escape = '\x1b';
constexpr std::string_view clearBelow = "\x1b[J";
constexpr std::string_view clearLine = "\x1b[K";
/// A shorter beginning is written again: to move over it takes as much.
constexpr std::size_t leastShared = 6;  // bytes

std::size_t columnsOf(terminal::Size size) {
  return static_cast<std::size_t>(std::max(size.columns, 1));
}

std::size_t rowsOf(terminal::Size size) {
  return static_cast<std::size_t>(std::max(size.rows, 1));
}

// ---- ink ----------------------------------------------------------------------------------------

/// How far the text goes with so much ink, which is lowered by what was found.
std::size_t endOfInk(std::string_view text, std::size_t& ink) {
  std::size_t at = 0;
  while (at < text.size() && ink > 0) {
    const std::size_t white = white::at(text, at);
    if (white == 0) --ink;
    at += white == 0 ? 1 : white;
  }
  return at;
}

std::size_t inkOf(std::string_view text) {
  std::size_t most = std::string_view::npos;
  endOfInk(text, most);
  return std::string_view::npos - most;
}

std::size_t inkOf(const std::vector<std::string>& cells) {
  std::size_t ink = 0;
  for (const auto& cell : cells) ink += inkOf(cell);
  return ink;
}

/// The ink of a block between two offsets as places have them.
std::size_t inkBetween(const ResponseBlock& block, std::size_t from, std::size_t to) {
  if (const auto* table = std::get_if<ResponseTable>(&block.kind)) {
    std::size_t ink = 0;
    for (std::size_t line = from; line < std::min(to, table->rows.size() + 1); ++line) {
      ink += inkOf(line == 0 ? table->headers : table->rows[line - 1]);
    }
    return ink;
  }
  const std::size_t end = std::min(to, block.text.size());
  return from < end ? inkOf(std::string_view(block.text).substr(from, end - from)) : 0;
}

std::size_t endOf(const ResponseBlock& block) {
  const auto* table = std::get_if<ResponseTable>(&block.kind);
  return table ? table->rows.size() + 1 : block.text.size();
}

bool isParagraph(const ResponseBlock& block) {
  return std::holds_alternative<ResponseBlock::Paragraph>(block.kind);
}

bool isCode(const ResponseBlock& block) {
  return std::holds_alternative<ResponseBlock::Code>(block.kind);
}

}  // namespace

// ---- what has come ------------------------------------------------------------------------------

void AnswerStream::append(std::string_view text) {
  const std::string decided = undecided_.take(text);
  if (decided.empty()) return;
  blocks_.append(decided);
  isDirty_ = true;
}

void AnswerStream::skip() {
  blocks_.append(undecided_.release());
  settleAll();
}

std::string AnswerStream::draw(terminal::Size size) {
  const bool isResized = size.columns != drawn_.columns || size.rows != drawn_.rows;
  if (!isDirty_ && !(isResized && !shown_.empty())) return "";
  std::string out;
  if (isResized) adapt(size, out);
  findPlace();
  const auto columns = static_cast<std::size_t>(TerminalStyle::usable(size.columns));
  auto lines = answerLinesFrom(place_, blocks_.blocks(), style_, columns, measure_);
  if (isFirst_ && !lines.empty() && lines.front().begin.stage == Stage::gap) {
    lines.erase(lines.begin());
  }
  out += redrawn(lines, size);
  shown_ = std::move(lines);
  drawn_ = size;
  end_ = endPlace();
  isDirty_ = false;
  settle(size);
  return out;
}

std::string AnswerStream::leave(terminal::Size size) {
  const std::string rest = undecided_.release();
  if (!rest.empty()) {
    blocks_.append(rest);
    isDirty_ = true;
  }
  std::string out = draw(size);
  if (std::exchange(isLineOpen_, false)) out += '\n';
  settleAll();
  return out;
}

std::string AnswerStream::mend() const {
  if (shown_.empty() || rowsOf(shown_.back()) != 1) return "";
  return fmt::format("\r{}{}", clearLine, styled(shown_.back().text, shown_.back().look));
}

// ---- what is settled ----------------------------------------------------------------------------

const ResponseBlock* AnswerStream::placeBlock() const {
  const auto& blocks = blocks_.blocks();
  return place_.block < blocks.size() ? &blocks[place_.block] : nullptr;
}

/// Gives away what will not be drawn over again. The last line always stays: it may go on.
void AnswerStream::settle(terminal::Size size) {
  const auto& blocks = blocks_.blocks();
  const std::size_t settled = blocks_.settledCount();
  std::size_t count = 0;
  while (count + 1 < shown_.size() && shown_[count].begin.block < settled) ++count;
  if (settled < blocks.size() && isCode(blocks[settled]) && !blocks[settled].text.empty()) {
    // Lines of code are not read again when the next one comes.
    while (count + 1 < shown_.size() && shown_[count + 1].begin.block == settled) ++count;
  }
  settleLines(count);
  settleRows(size);
}

void AnswerStream::settleLines(std::size_t count) {
  if (count == 0) return;
  advance(shown_[count].begin);
  shown_.erase(shown_.begin(), shown_.begin() + static_cast<std::ptrdiff_t>(count));
  isFirst_ = false;
}

/// What is higher than the terminal has scrolled away.
void AnswerStream::settleRows(terminal::Size size) {
  std::size_t rows = 0;
  for (const auto& line : shown_) rows += rowsOf(line, size);
  std::size_t count = 0;
  while (rows > shell::rowsOf(size) && count + 1 < shown_.size()) {
    rows -= rowsOf(shown_[count++], size);
  }
  settleLines(count);
  if (rows <= shell::rowsOf(size) || shown_.empty()) return;
  const ResponseBlock& block = blocks_.blocks()[shown_.front().begin.block];
  if (!isCode(block)) return;
  const auto after = placeAfterRows(rows - 1, shown_.front(), block, columnsOf(size));
  if (!after) return;
  advance(*after);
  isFirst_ = false;
  shown_ = answerLinesFrom(place_, blocks_.blocks(), style_, columnsOf(size), measure_);
}

void AnswerStream::settleAll() {
  findPlace();
  shown_.clear();
  isFirst_ = true;
  isDirty_ = false;
  if (!blocks_.blocks().empty()) advance(endPlace());
}

AnswerPlace AnswerStream::endPlace() const {
  const auto& blocks = blocks_.blocks();
  if (blocks.empty()) return {};
  const ResponseBlock& last = blocks.back();
  // Code that ends with an empty line is closed: while it goes on, such a line does not show.
  if (isCode(last) && last.text.ends_with('\n')) return {.block = blocks.size()};
  return {.block = blocks.size() - 1, .stage = Stage::end, .offset = endOf(last)};
}

void AnswerStream::advance(const AnswerPlace& place) {
  const auto& blocks = blocks_.blocks();
  while (place_.block < place.block) {
    if (const auto* block = placeBlock()) ink_ += inkBetween(*block, place_.offset, endOf(*block));
    place_ = {.block = place_.block + 1};
    inkOfBlock_ = 0;
  }
  if (place.block < blocks.size()) {
    const std::size_t ink = inkBetween(blocks[place.block], place_.offset, place.offset);
    ink_ += ink;
    inkOfBlock_ += ink;
  }
  place_ = place;
  around_ = surroundings();
}

AnswerStream::Surroundings AnswerStream::surroundings() const {
  Surroundings around;
  if (const auto* block = placeBlock()) {
    around.block = block->id;
    around.kind = block->kind.index();
    if (place_.block > 0) around.before = endOf(blocks_.blocks()[place_.block - 1]);
  }
  return around;
}

/// The text may be read in another way than when the place was chosen.
void AnswerStream::findPlace() {
  if (!around_.block) return;
  const auto& blocks = blocks_.blocks();
  const ResponseBlock* block = placeBlock();
  const Surroundings now = surroundings();
  if (now == around_) {
    if (place_.offset <= endOf(*block)) return;
    const bool isLast = place_.block + 1 == blocks.size();
    if (isLast || !isParagraph(blocks[place_.block + 1])) {
      // Its last line has turned out to be something else, and is shown as that.
      ink_ -= inkOfBlock_;
      inkOfBlock_ = inkBetween(*block, 0, endOf(*block));
      ink_ += inkOfBlock_;
      place_.offset = endOf(*block);
      place_.readFrom = 0;
      return;
    }
  } else if (now.block == around_.block && now.before == around_.before) {
    // So has all of it.
    ink_ -= std::exchange(inkOfBlock_, 0);
    place_ = {.block = place_.block};
    around_ = surroundings();
    return;
  }
  std::size_t ink = ink_;
  place_ = {};
  inkOfBlock_ = 0;
  for (std::size_t i = 0; i < blocks.size() && ink > 0; ++i) {
    const std::size_t whole = inkBetween(blocks[i], 0, endOf(blocks[i]));
    inkOfBlock_ = std::min(ink, whole);
    if (ink < whole && !blocks[i].text.empty()) {
      place_ = {.block = i, .stage = Stage::line, .offset = endOfInk(blocks[i].text, ink)};
      break;
    }
    ink -= inkOfBlock_;
    place_ = {.block = i, .stage = Stage::end, .offset = endOf(blocks[i])};
  }
  around_ = surroundings();
}

// ---- drawing ------------------------------------------------------------------------------------

std::size_t AnswerStream::rowsOf(const AnswerLine& line, terminal::Size size) {
  return rowCount(line.text, columnsOf(size));
}

/// What becomes of lines when a terminal is resized differs. Those that are whole on one row before
/// and after stay where they are; others are left to the terminal.
void AnswerStream::adapt(terminal::Size size, std::string& out) {
  if (shown_.empty()) return;
  if (size.columns != drawn_.columns) {
    const terminal::Size narrower{std::min(size.columns, drawn_.columns), size.rows};
    const auto moves = [&](const AnswerLine& line) {
      return line.begin.stage == Stage::row || rowsOf(line, narrower) != 1;
    };
    const auto last = std::find_if(shown_.rbegin(), shown_.rend(), moves);
    if (last == shown_.rbegin()) {
      findPlace();
      advance(end_);
      shown_.clear();
      isFirst_ = false;
      if (std::exchange(isLineOpen_, false)) out += '\n';
      return;
    }
    settleLines(static_cast<std::size_t>(shown_.rend() - last));
  }
  settleRows(size);
}

std::string AnswerStream::styled(std::string_view text, AnswerLine::Look look) const {
  return look ? (style_.*look)(text) : std::string(text);
}

/// The cursor stands at the beginning of the earlier line, which takes one row, as the other does.
void AnswerStream::replaceLine(const AnswerLine& earlier, const AnswerLine& line,
                               std::string& out) const {
  const std::string_view now = line.text;
  const auto isPlain = [](char byte) { return byte >= ' ' && byte < '\x7f'; };
  std::size_t shared = 0;
  if (line.look == earlier.look) {
    const auto differ = std::ranges::mismatch(
        now, earlier.text, [&](char one, char other) { return one == other && isPlain(one); });
    shared = static_cast<std::size_t>(differ.in1 - now.begin());
    // The next character may be a mark that belongs to the one before it.
    const auto isMark = [&](std::string_view text) {
      return shared < text.size() && !isPlain(text[shared]) && text[shared] != escape;
    };
    if (shared > 0 && (isMark(now) || isMark(earlier.text))) --shared;
  }
  if (shared < leastShared) shared = 0;
  if (shared > 0) out += fmt::format("\x1b[{}C", shared);
  if (shared < earlier.text.size()) out += clearLine;
  out += styled(now.substr(shared), line.look);
}

std::string AnswerStream::redrawn(const std::vector<AnswerLine>& lines, terminal::Size size) {
  std::string out;
  const auto print = [&](const AnswerLine& line) {
    if (isLineOpen_) out += '\n';
    out += styled(line.text, line.look);
    isLineOpen_ = true;
  };
  const auto printFrom = [&](std::size_t first) {
    for (std::size_t i = first; i < lines.size(); ++i) print(lines[i]);
  };
  const auto same = [](const AnswerLine& one, const AnswerLine& other) {
    return one.looksLike(other);
  };
  const auto differ = std::ranges::mismatch(shown_, lines, same);
  auto first = static_cast<std::size_t>(differ.in1 - shown_.begin());
  if (first == shown_.size()) {
    printFrom(first);
    return out;
  }
  if (first + 1 == shown_.size() && first < lines.size()) {
    const AnswerLine& last = shown_.back();
    const AnswerLine& now = lines[first];
    const bool goesOn = now.look == last.look || last.text.empty();
    if (goesOn && now.text.starts_with(last.text)) {
      out += styled(std::string_view(now.text).substr(last.text.size()), now.look);
      printFrom(first + 1);
      return out;
    }
  }
  // The cursor ends behind the last line, which is written again where it is the same.
  if (first == lines.size() && first > 0) --first;
  std::size_t rows = 0;
  bool movesLines = lines.size() < shown_.size();
  for (std::size_t i = first; i < shown_.size(); ++i) {
    const std::size_t each = rowsOf(shown_[i], size);
    rows += each;
    if (each != 1 || (i < lines.size() && rowsOf(lines[i], size) != 1)) movesLines = true;
  }
  if (rows > 1) out += fmt::format("\x1b[{}A", rows - 1);
  out += '\r';
  isLineOpen_ = false;
  if (movesLines) {
    out += clearBelow;
    printFrom(first);
    return out;
  }
  for (std::size_t i = first; i < lines.size(); ++i) {
    if (i >= shown_.size()) {
      print(lines[i]);
      continue;
    }
    if (i > first) out += '\n';
    const bool mayStay = i + 1 < lines.size() && lines[i].looksLike(shown_[i]);
    if (!mayStay) replaceLine(shown_[i], lines[i], out);
    isLineOpen_ = true;
  }
  return out;
}

}  // namespace vantrell::shell
