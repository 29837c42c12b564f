// Marks of Markdown within a text of an agent, which a terminal with styles shows as looks instead:
// **bold** and `code`. Who is in doubt leaves them alone: a power, a glob and a mark without its
// partner stay as they were written, and so do *these* and _these_, which names and globs have as
// well. Pure, any thread.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace vantrell::shell {

struct InlineLook {
  bool isBold = false;
  bool isCode = false;

  bool operator==(const InlineLook&) const = default;
};

/// A mark that has its partner; `after` is how the text behind it looks.
struct InlineMark {
  std::size_t begin;
  std::size_t end;
  InlineLook after;
};

class InlineMarks {
 public:
  /// Further apart, in bytes, two marks are no partners: so a text that grows has not to be read
  /// from its beginning.
  static constexpr std::size_t longestSpan = 2000;

  /// None: all that look like marks are text.
  InlineMarks() = default;
  /// Those from an offset on that is 0 or a reading point of the text. The cost is that of the text
  /// from there.
  explicit InlineMarks(std::string_view text, std::size_t from = 0);

  /// In their order.
  const std::vector<InlineMark>& marks() const { return marks_; }
  /// Where to begin, when the text has grown, so that all from the offset on is read as if it were
  /// read from its beginning. Offsets must not fall from one call to the next.
  std::size_t readingPoint(std::size_t offset);

 private:
  struct Opener {
    std::size_t begin;
    std::size_t end;   // of the partner
    std::size_t from;  // where to begin so that it is read
  };

  std::vector<InlineMark> marks_;
  std::vector<Opener> openers_;
  std::size_t firstOpener_ = 0;  // that is of use to a reading point
};

/// A line, or part of one, without its marks.
struct InlineText {
  struct Change {
    std::size_t at;
    InlineLook look;
  };
  /// How all of the line looks, whatever stands in it.
  enum class Around { plain, bold, dim };

  std::string text;             // fit for a terminal
  std::vector<Change> changes;  // in their order; what lies behind the text does not count

  /// With escape sequences. At its end the text looks as what is around it.
  std::string styled(Around around) const;
};

/// A text that is one line and fit for a terminal, without its marks.
InlineText withoutMarks(std::string_view line);

}  // namespace vantrell::shell
