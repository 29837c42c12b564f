// What an agent says, made ready for the terminal line by line while it comes. Nothing that was
// given out is drawn again. On a live terminal lines are wrapped and Markdown becomes looks,
// indents and tables; elsewhere the text is given out as it comes. Makes text and writes nothing.
// Owned by what prints the transcript; one thread at a time.
#pragma once

#include <optional>
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

  /// Takes the next text, as the agent sent it, and returns what can be shown: complete lines, of a
  /// line that is still open its complete rows, of a table nothing before its end. Costs a layout
  /// of what of the open line was not given out.
  std::string append(std::string_view text, std::size_t columns);
  /// All that is left, with the end of its line. What follows begins a new one.
  std::string finish(std::size_t columns);

 private:
  struct Beginning;
  std::string asItComes(std::string_view text);
  void endLine();
  void endTable();
  void addLines(std::string_view source, bool isWhole);
  void put(std::string_view line);

  const TerminalStyle style_;
  const Kind kind_;
  std::size_t columns_ = 0;
  std::string out_;                 // of the present call
  std::string line_;                // the open one, without the rows that were given out
  std::vector<std::string> table_;  // lines that are one, or may become one
  bool isInCode_ = false;
  bool isMidLine_ = false;  // something of the open line was given out
  std::string indent_;      // then: before its next rows
  TerminalStyle::Look look_ = nullptr;
  std::size_t blankLines_ = 0;  // due before the next line
  bool isBegun_ = false;        // something was given out since the last finish()
};

/// The lines of a whole answer.
std::vector<std::string> answerLines(std::string_view text, const TerminalStyle& style,
                                     std::size_t columns);

}  // namespace vantrell::shell
