// The one way of a command to its output and its error output. Both are written in the background,
// in order (where both are the same file, in one order), so that a slow reader never holds the main
// queue up. What goes to a terminal is made safe here, whatever it was made of: of control
// characters only line ends, tabs and the sequences of our own styles and status lines pass. Main
// queue.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "platform/queues/dispatch.h"
#include "platform/queues/output_sink.h"
#include "shell/terminal/terminal_style.h"

namespace vantrell::shell {

class Console {
 public:
  struct Streams {
    int output = 1;
    int error = 2;
    /// Whether the user lets it write now. Any thread. Unset: always.
    std::function<bool()> mayWrite{};
  };
  /// `commandNames` are the words that follow "vantrell" in a line that can be typed.
  Console(MainQueue& main, Streams streams, const Environment& environment,
          std::vector<std::string_view> commandNames);

  const TerminalStyle& style() const { return style_; }
  bool isOutputTerminal() const { return outputIsTerminal_; }
  /// The columns that tables fill: those of the terminal, else as many as they want.
  std::size_t columns() const;

  /// Text as it is, but for what no terminal may get.
  void write(std::string_view text);
  /// The program's own words: commands in them are named as the user types them.
  void say(std::string_view text) { write(asTyped(text)); }
  /// "vantrell: " and the text as a line of the error output, which is always made safe.
  void complain(std::string_view text);
  /// A question, a status line: without an end of line, on the error output.
  void prompt(std::string_view text);

  /// Text in which commands stand as "vantrell run ...", with what the user types in place of
  /// "vantrell": a checkout is started by ./run, which says so in $VANTRELL_COMMAND.
  std::string asTyped(std::string_view text) const;

  // Where a person reads along.

  /// A line that the next output takes away; on a live terminal only.
  void status(std::string_view text);
  /// A question that stays last, whatever is written, until the user ends its line or it is
  /// withdrawn.
  void ask(std::string question);
  void lineWasTyped() { question_.clear(); }
  void withdrawQuestion();
  /// Wipes the key that the terminal shows when it sends a signal.
  void wipeKey();

  // The end.

  /// Nothing more can be written: a caller that produces much may stop.
  bool isClosed() const { return output_.error() != 0; }
  /// For long work: when the reader is gone, and when more waits for him than he reads.
  void onBroken(std::function<void()> broken) { output_.onBroken = std::move(broken); }
  void onFullChanged(std::function<void(bool)> changed) {
    output_.onFullChanged = std::move(changed);
  }
  /// Goes on when the reader has all of the output, before something else writes to the same
  /// terminal.
  void whenWritten(std::function<void()> then) { output_.whenWritten(std::move(then)); }
  /// Goes on when everything is written, or the limit is over; another call sets another limit.
  /// False where the output could not be written, which the error output says then. A reader that
  /// has gone is no failure.
  void finish(Duration limit, std::function<void(bool isWritten)> then);

 private:
  void writeError(std::string_view text);

  MainQueue& main_;
  const Streams streams_;
  const bool outputIsTerminal_;
  const TerminalStyle style_;
  const std::string typedName_;  // empty: vantrell
  const std::vector<std::string_view> commandNames_;
  OutputSink output_;
  std::optional<OutputSink> error_;  // unset: the same file as the output
  bool isStatusShown_ = false;
  bool isMidLine_ = false;  // the output has not ended its line
  std::string question_;
  Timer limit_;
};

/// Text for a terminal with no other control sequence in it than those of our own: colours and the
/// erasing of a status line.
std::string safeForTerminal(std::string_view text);

}  // namespace vantrell::shell
