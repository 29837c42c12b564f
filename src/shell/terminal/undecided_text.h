// Keeps back the beginning of a line of an answer for as long as it says nothing yet about what the
// line is: shown at once, the dash of an item would flash up as a paragraph, and so would the rows
// of a table. Only a matter of looks: what is kept back comes with the next bytes that decide it,
// or when the owner asks. Owned by an AnswerStream.
#pragma once

#include <string>
#include <string_view>

namespace vantrell::shell {

class UndecidedText {
 public:
  /// Takes the next bytes, answers those that may be shown.
  std::string take(std::string_view text);
  /// All that is kept back.
  std::string release();
  std::size_t size() const { return kept_.size(); }

 private:
  /// What the lines before say about the next one.
  struct Context {
    bool isInLine = false;  // the last line has been begun
    bool isInCode = false;
    bool followsRow = false;  // the last line looks like the row of a table

    void note(std::string_view text);
    bool isUndecided(std::string_view line) const;
  };
  Context contextAt(std::size_t end) const;

  std::string kept_;
  Context given_;  // by what was given away
};

}  // namespace vantrell::shell
