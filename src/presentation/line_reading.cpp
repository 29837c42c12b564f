#include "presentation/line_reading.h"

#include <cstring>
#include <limits>

#include "platform/text/utf8.h"
#include "presentation/white_space.h"

namespace vantrell {

namespace {

constexpr std::size_t lowestLevel = 6;  // of headings
constexpr int deepest = 6;
constexpr int columnsPerDepth = 2;
constexpr int columnsPerTab = 4;
constexpr std::string_view fence = "```";
constexpr std::string_view roundBullet = "\xE2\x80\xA2 ";  // U+2022

constexpr bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

}  // namespace

std::string_view LineReader::content(std::string_view text) const {
  return text.substr(contentBegin_, contentEnd_ - contentBegin_);
}

void LineReader::read(std::string_view text, std::size_t end) {
  const std::string_view known = text.substr(0, end);
  if (contentBegin_ == unknown) {
    contentAt_ = white::skip(known, contentAt_ == unknown ? begin_ : contentAt_, white::blankAt);
    if (contentAt_ >= end) return;
    contentBegin_ = marksAt_ = pipesAt_ = contentAt_;
    isUniform_ =
        known[contentBegin_] == '-' || known[contentBegin_] == '*' || known[contentBegin_] == '_';
  }
  contentEnd_ = white::trimEnd(known, contentBegin_, end, white::blankAt);
  if (isUniform_) {
    const char mark = known[contentBegin_];
    while (marksAt_ < contentEnd_ && (known[marksAt_] == mark || known[marksAt_] == ' ')) {
      marks_ += known[marksAt_++] == mark;
    }
    isUniform_ = marksAt_ == contentEnd_;
  }
  while (pipesAt_ < contentEnd_) {
    const void* found = std::memchr(known.data() + pipesAt_, '|', contentEnd_ - pipesAt_);
    if (!found) {
      pipesAt_ = contentEnd_;
      break;
    }
    const auto pipe = static_cast<std::size_t>(static_cast<const char*>(found) - known.data());
    if (lastPipe_ == unknown || lastPipe_ + 1 != pipe) {
      pipeBeforeRun_ = lastPipe_;
      runBegin_ = pipe;
    }
    if (runBegin_ == contentBegin_) ++leadingPipes_;
    lastPipe_ = pipe;
    ++pipes_;
    pipesAt_ = pipe + 1;
  }
}

bool LineReader::isFence(std::string_view text) const {
  return contentBegin_ != unknown && content(text).starts_with(fence);
}

std::size_t LineReader::cells() const {
  if (pipes_ == 0 || leadingPipes_ == contentEnd_ - contentBegin_) return 0;
  const std::size_t trailing = lastPipe_ + 1 == contentEnd_ ? contentEnd_ - runBegin_ : 0;
  const std::size_t inner = pipes_ - leadingPipes_ - trailing;
  return inner == 0 ? 0 : inner + 1;
}

LineReading LineReader::rowReading(std::string_view text) const {
  const bool endsInPipes = lastPipe_ + 1 == contentEnd_;
  const std::size_t cell = (endsInPipes ? pipeBeforeRun_ : lastPipe_) + 1;
  LineReading reading{.kind = LineReading::Kind::row};
  reading.end = white::trimEnd(text, cell, endsInPipes ? runBegin_ : contentEnd_, white::blankAt);
  reading.begin =
      std::min(white::skip(text.substr(0, reading.end), cell, white::blankAt), reading.end);
  return reading;
}

std::size_t LineReader::bodyFrom(std::string_view text, std::size_t from,
                                 std::size_t& known) const {
  if (known != unknown) return known;
  const std::size_t body = white::skip(text.substr(0, contentEnd_), from, white::blankAt);
  if (body < contentEnd_) known = body;
  return body;
}

int LineReader::depth(std::string_view line) {
  int columns = 0;
  for (const char c : line) {
    if ((c != ' ' && c != '\t') || columns >= deepest * columnsPerDepth) break;
    columns += c == '\t' ? columnsPerTab : 1;
  }
  return std::min(columns / columnsPerDepth, deepest);
}

std::size_t LineReader::bulletMarker(std::string_view trimmedLine) {
  if (trimmedLine.starts_with(roundBullet)) return roundBullet.size();
  if (trimmedLine.size() < 2 || trimmedLine[1] != ' ') return 0;
  const char mark = trimmedLine[0];
  return mark == '-' || mark == '*' || mark == '+' ? 2 : 0;
}

std::size_t LineReader::checkBox(std::string_view item) {
  if (item.size() < 4 || item[0] != '[' || item[2] != ']') return 0;
  if (item[1] != ' ' && item[1] != 'x' && item[1] != 'X') return 0;
  const std::size_t blank = white::at(item, 3);
  return blank == 0 ? 0 : 3 + blank;
}

LineReading LineReader::reading(std::string_view text, bool opensParagraph) {
  using Kind = LineReading::Kind;
  LineReading reading;
  if (contentBegin_ == unknown) return reading;
  const std::string_view line = content(text);
  reading.end = contentEnd_;
  if (line.starts_with(fence)) {
    reading.kind = Kind::fenceStart;
    reading.begin = bodyFrom(text, contentBegin_ + fence.size(), body_);
    return reading;
  }
  if (line[0] == '#') {
    std::size_t level = 1;
    while (level <= lowestLevel && level < line.size() && line[level] == '#') ++level;
    if (level <= lowestLevel && level < line.size() && line[level] == ' ') {
      reading.kind = Kind::heading;
      reading.level = static_cast<int>(level);
      reading.begin = contentBegin_ + level + 1;
      return reading;
    }
  }
  if (isUniform_ && marks_ >= 3) {
    reading.kind = Kind::divider;
    reading.begin = reading.end;
    return reading;
  }
  if (const std::size_t marker = bulletMarker(line)) {
    reading.level = depth(text.substr(begin_));
    reading.begin = bodyFrom(text, contentBegin_ + marker, body_);
    const std::string_view item = text.substr(reading.begin, contentEnd_ - reading.begin);
    reading.kind = Kind::bullet;
    if (const std::size_t box = checkBox(item)) {
      reading.kind = Kind::checklist;
      reading.checked = item[1] != ' ';
      reading.begin = bodyFrom(text, reading.begin + box, checkBody_);
    }
    return reading;
  }
  if (isDigit(line[0]) && readNumber(text, reading)) return reading;
  if (line[0] == '>') {
    reading.kind = Kind::quote;
    reading.begin = bodyFrom(text, contentBegin_ + 1, body_);
    return reading;
  }
  reading.kind = Kind::paragraph;
  reading.begin = contentBegin_;
  if (opensParagraph) {
    if (paragraphBody_ == unknown) {
      paragraphBody_ = white::skip(text.substr(0, contentEnd_), contentBegin_, white::at);
    }
    reading.begin = std::min(paragraphBody_, contentEnd_);
  }
  return reading;
}

/// "^(\d+)[.)]\s+(.+)$", where no dot matches a line break and "$" also matches before one that
/// ends the line. Digits of other scripts make no item: the number would lose them.
bool LineReader::readNumber(std::string_view text, LineReading& reading) {
  constexpr auto largest = std::numeric_limits<std::int64_t>::max();
  const std::string_view known = text.substr(0, contentEnd_);
  if (numberState_ == Number::open) {
    if (digitsAt_ == unknown) digitsAt_ = contentBegin_;
    while (digitsAt_ < contentEnd_ && isDigit(known[digitsAt_])) {
      const int digit = known[digitsAt_++] - '0';
      if (number_ > (largest - digit) / 10) {
        numberState_ = Number::none;
        return false;
      }
      number_ = number_ * 10 + digit;
    }
    if (digitsAt_ == contentEnd_) return false;
    const bool hasMark = known[digitsAt_] == '.' || known[digitsAt_] == ')';
    const std::size_t behind = digitsAt_ + 1;
    if (!hasMark || (behind < contentEnd_ && white::at(known, behind) == 0)) {
      numberState_ = Number::none;
      return false;
    }
    if (behind == contentEnd_) return false;
    const std::size_t body = white::skip(known, behind, white::at);
    if (body == contentEnd_) {
      // Nothing but white space, whose end is a line break: the text is the character before that.
      const auto before = [&](std::size_t end) {
        std::size_t at = end - 1;
        while (at > behind && utf8::isContinuation(known[at])) --at;
        return at;
      };
      const std::size_t last = before(contentEnd_);
      if (last <= behind) return false;
      const std::size_t item = before(last);
      if (item <= behind || white::breakAt(known, item) != 0) return false;
      reading.begin = item;
      reading.end = last;
    } else {
      numberState_ = Number::found;
      body_ = breaksAt_ = body;
    }
  }
  if (numberState_ == Number::none) return false;
  if (numberState_ == Number::found) {
    for (; breaksAt_ < contentEnd_ && firstBreak_ == unknown; ++breaksAt_) {
      if (white::breakAt(known, breaksAt_) != 0) firstBreak_ = breaksAt_;
    }
    reading.begin = body_;
    if (firstBreak_ != unknown) {
      if (firstBreak_ + white::breakAt(known, firstBreak_) != contentEnd_) return false;
      reading.end = firstBreak_;
    }
  }
  reading.kind = LineReading::Kind::numbered;
  reading.number = number_;
  reading.level = depth(text.substr(begin_));
  return true;
}

void SeparatorReader::read(std::string_view text, std::size_t end) {
  const std::string_view known = text.substr(0, end);
  while (at_ < end && !isHopeless_) {
    const char c = known[at_];
    if (c == '|') {
      readPipe();
    } else if (c == '-' || c == ':') {
      isHopeless_ = hasEmptyCell_ || (isInCell_ && hasGap_);
      if (!isInCell_) {
        part_ = Part::colonsBefore;
        dashes_ = 0;
      }
      begun_ = isInCell_ = true;
      hasGap_ = false;
      if (c == '-') {
        isHopeless_ = isHopeless_ || part_ == Part::colonsAfter;
        part_ = Part::dashes;
        ++dashes_;
      } else if (part_ == Part::dashes) {
        part_ = Part::colonsAfter;
      }
    } else {
      const std::size_t blank = white::blankAt(known, at_);
      if (blank == 0) {
        isHopeless_ = true;
        return;
      }
      // White space at the end of the line counts for nothing, so it says nothing by itself.
      hasGap_ = hasGap_ || begun_ || hasLeadingPipe_;
      at_ += blank;
      continue;
    }
    ++at_;
  }
}

void SeparatorReader::readPipe() {
  if (isInCell_) {
    isHopeless_ = dashes_ < 3;
    ++closedCells_;
    isInCell_ = false;
  } else if (hasGap_) {
    isHopeless_ = true;  // a cell of white space
  } else if (begun_) {
    hasEmptyCell_ = true;  // unless only pipes follow
  }
  hasLeadingPipe_ = hasLeadingPipe_ || !begun_;
  hasGap_ = false;
}

bool SeparatorReader::isSeparator(std::size_t cells) const {
  if (isHopeless_ || cells < 2) return false;
  if (!isInCell_) return closedCells_ == cells;
  return dashes_ >= 3 && closedCells_ + 1 == cells;
}

std::vector<std::string> splitCells(std::string_view trimmedLine) {
  const std::size_t begin = std::min(trimmedLine.find_first_not_of('|'), trimmedLine.size());
  std::string_view rest = trimmedLine.substr(begin);
  rest = rest.substr(0, rest.find_last_not_of('|') + 1);
  std::vector<std::string> cells;
  while (true) {
    const std::size_t pipe = rest.find('|');
    cells.emplace_back(white::trimmedOfBlanks(rest.substr(0, pipe)));
    if (pipe == rest.npos) return cells;
    rest.remove_prefix(pipe + 1);
  }
}

}  // namespace vantrell
