// An answer that is laid out on a live terminal while it comes. What can no longer change is
// printed for good. The rest, no more of it than the terminal shows, is kept, and only lines of it
// that differ are drawn over; what has scrolled away meanwhile stays as it was. Makes bytes and
// writes nothing: between two draws the cursor must stay where the first has left it. One thread at
// a time.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "presentation/incremental_blocks.h"
#include "shell/terminal/answer_lines.h"
#include "shell/terminal/terminal_style.h"
#include "shell/terminal/undecided_text.h"

namespace vantrell::shell {

class AnswerStream {
 public:
  explicit AnswerStream(TerminalStyle style) : style_(style) {}

  /// Takes the next text; shows nothing.
  void append(std::string_view text);
  /// Everything that has come counts as shown: a later draw begins with what follows.
  void skip();
  /// What brings the screen up to date. The cursor stands at the beginning of an empty row before
  /// the first draw, and behind the last character after each.
  std::string draw(terminal::Size size);
  /// Draws, and ends the last line: what stands there stays. What follows begins a new line.
  std::string leave(terminal::Size size);
  /// Makes the last line good where somebody else has written behind it, if that is possible.
  std::string mend() const;

  /// Bytes that are not shown yet, since nobody can say what they begin.
  std::size_t heldBack() const { return undecided_.size(); }

 private:
  /// What a place is known by: its block, and the end of the one before.
  struct Surroundings {
    std::optional<Uuid> block;
    std::size_t kind = 0;
    std::size_t before = 0;
    bool operator==(const Surroundings&) const = default;
  };

  const ResponseBlock* placeBlock() const;
  Surroundings surroundings() const;
  void settle(terminal::Size size);
  void settleLines(std::size_t count);
  void settleRows(terminal::Size size);
  void settleAll();
  void advance(const AnswerPlace& place);
  void findPlace();
  void adapt(terminal::Size size, std::string& out);
  std::size_t rowsOf(const AnswerLine& line) const { return rowsOf(line, drawn_); }
  static std::size_t rowsOf(const AnswerLine& line, terminal::Size size);
  AnswerPlace endPlace() const;
  std::string redrawn(const std::vector<AnswerLine>& lines, terminal::Size size);
  std::string styled(std::string_view text, AnswerLine::Look look) const;
  void replaceLine(const AnswerLine& earlier, const AnswerLine& line, std::string& out) const;

  TerminalStyle style_;
  IncrementalBlocks blocks_;
  UndecidedText undecided_;
  TableMeasure measure_;

  /// What lies before it will not be drawn over any more.
  AnswerPlace place_;
  Surroundings around_;  // when it was chosen
  /// Bytes of the texts before the place, without white space. Prose that is broken up, or put
  /// together again, has other blocks with the same ink.
  std::size_t ink_ = 0;
  std::size_t inkOfBlock_ = 0;  // those of them in the block of the place

  std::vector<AnswerLine> shown_;  // from the place on, as it stands on the screen
  terminal::Size drawn_;           // of the terminal then
  AnswerPlace end_;                // of what was drawn
  bool isDirty_ = false;
  bool isLineOpen_ = false;  // the cursor stands behind a text
  bool isFirst_ = true;      // no line that stands belongs to this answer, but for shown_
};

}  // namespace vantrell::shell
