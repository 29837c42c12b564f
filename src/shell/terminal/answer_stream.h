// What an agent says, made ready for the terminal line by line as it comes. Nothing that was given
// out is drawn again. On a live terminal lines are wrapped and Markdown becomes looks, indents and
// tables; elsewhere they are given out as they are. Makes text and writes nothing. Owned by the
// printer of transcripts; one thread at a time.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "shell/terminal/terminal_style.h"

namespace vantrell::shell {

class AnswerStream {
 public:
  enum class Kind { answer, thought };
  explicit AnswerStream(const TerminalStyle& style, Kind kind = Kind::answer)
      : style_(style), kind_(kind) {}

  /// Takes the next text, as the agent sent it, and returns the lines that it completes; those of a
  /// table come with its end.
  std::string append(std::string_view text, std::size_t columns);
  /// All that is left, with the end of its line. What follows begins a new one.
  std::string finish(std::size_t columns);

 private:
  void endLine();
  void endTable();
  void addText(std::string_view line);
  void put(std::string_view line);

  const TerminalStyle style_;
  const Kind kind_;
  std::size_t columns_ = 0;
  std::string out_;                 // of the present call
  std::string line_;                // the open one
  std::vector<std::string> table_;  // lines that are one, or may become one
  bool isInCode_ = false;
  std::size_t blankLines_ = 0;  // due before the next line
  bool isBegun_ = false;        // something was given out since the last finish()
};

}  // namespace vantrell::shell
