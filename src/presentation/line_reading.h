// What one line of an answer is: the line tests, which look at a line from its beginning and
// remember how far they have come, so that a line that grows at its end is read on and never read
// anew. Plain values without a queue; offsets are bytes of the text that the line lies in.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vantrell {

/// A line as the rules see it.
struct LineReading {
  enum class Kind {
    codeLine,
    fenceEnd,
    fenceStart,
    row,
    blank,
    heading,
    divider,
    bullet,
    checklist,
    numbered,
    quote,
    paragraph
  };
  Kind kind = Kind::blank;
  int level = 0;            // of a heading; the depth of an item
  bool checked = false;     // of a checklist item
  std::int64_t number = 0;  // of a numbered item
  /// The text of its block, or what the line adds to one; of a row its last cell.
  std::size_t begin = 0;
  std::size_t end = 0;

  /// The same but for the end: the line has grown, and its block with it.
  bool isGrown(const LineReading& earlier) const {
    return kind == earlier.kind && level == earlier.level && checked == earlier.checked &&
           number == earlier.number && begin == earlier.begin;
  }
};

/// One line of a text that ends there or goes on. The text is given with each call, since it may
/// have moved; what was read of it must not have changed.
class LineReader {
 public:
  explicit LineReader(std::size_t lineBegin = 0) : begin_(lineBegin) {}

  std::size_t begin() const { return begin_; }
  /// Reads on to `end`; whether the line goes on behind it does not matter.
  void read(std::string_view text, std::size_t end);

  /// Whether it begins with a code fence.
  bool isFence(std::string_view text) const;
  /// Number of cells of a table row; 0 when the line is none.
  std::size_t cells() const;
  /// What it is where no code is open and no table takes it. `opensParagraph`: a paragraph would
  /// begin here, which drops the line breaks before its text.
  LineReading reading(std::string_view text, bool opensParagraph);
  /// As a row of a table.
  LineReading rowReading(std::string_view text) const;

  /// Steps of two columns that a line is indented, at most 6.
  static int depth(std::string_view line);
  /// Length of the marker of a bullet, with its blank, that a trimmed line begins with; else 0.
  static std::size_t bulletMarker(std::string_view trimmedLine);
  /// Length of the box of a checklist, with its white space, that an item begins with; else 0.
  static std::size_t checkBox(std::string_view item);

 private:
  std::string_view content(std::string_view text) const;
  std::size_t bodyFrom(std::string_view text, std::size_t from, std::size_t& known) const;
  bool readNumber(std::string_view text, LineReading& reading);

  static constexpr std::size_t unknown = std::string_view::npos;

  std::size_t begin_;
  std::size_t contentBegin_ = unknown;  // without white space at both ends
  std::size_t contentEnd_ = 0;
  std::size_t contentAt_ = unknown;  // where the search for its beginning goes on

  /// The marks of a divider: how far the line consists of one, and how many there are.
  std::size_t marksAt_ = unknown;
  std::size_t marks_ = 0;
  bool isUniform_ = true;

  std::size_t pipesAt_ = unknown;
  std::size_t pipes_ = 0;
  std::size_t leadingPipes_ = 0;
  std::size_t runBegin_ = unknown;  // of the last pipes that stand side by side
  std::size_t lastPipe_ = unknown;
  std::size_t pipeBeforeRun_ = unknown;

  /// Where texts begin behind a marker, once known.
  std::size_t body_ = unknown;
  std::size_t checkBody_ = unknown;
  std::size_t paragraphBody_ = unknown;

  /// "12. ": the digits, and the search for a line break that no item may have.
  enum class Number { open, none, found };
  Number numberState_ = Number::open;
  std::size_t digitsAt_ = unknown;
  std::int64_t number_ = 0;
  std::size_t breaksAt_ = unknown;
  std::size_t firstBreak_ = unknown;
};

/// Whether a line is the separator below the headers of a table: cells of three dashes or more,
/// which may have colons around them.
class SeparatorReader {
 public:
  explicit SeparatorReader(std::size_t lineBegin = 0) : at_(lineBegin) {}

  /// Reads on to `end`, as LineReader does.
  void read(std::string_view text, std::size_t end);
  /// Nothing that may follow makes it a separator.
  bool isHopeless() const { return isHopeless_; }
  /// With so many cells, as it stands.
  bool isSeparator(std::size_t cells) const;

 private:
  void readPipe();

  enum class Part { colonsBefore, dashes, colonsAfter };
  std::size_t at_;
  bool isHopeless_ = false;
  bool begun_ = false;     // something but pipes was read
  bool isInCell_ = false;  // since the last pipe
  bool hasGap_ = false;    // white space behind it, which only the end of the cell may follow
  bool hasLeadingPipe_ = false;
  bool hasEmptyCell_ = false;  // "||", which is none at the end of the line
  Part part_ = Part::colonsBefore;
  std::size_t dashes_ = 0;
  std::size_t closedCells_ = 0;
};

/// The cells between pipes, trimmed, without those pipes that frame the row.
std::vector<std::string> splitCells(std::string_view trimmedLine);

}  // namespace vantrell
