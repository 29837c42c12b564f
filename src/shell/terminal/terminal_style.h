// How output may look: a live terminal takes colours and a status line; a pipe, a file, a dumb
// terminal and a user who set NO_COLOR get plain lines. Any thread.
#pragma once

#include <string>
#include <string_view>

#include "platform/process/process.h"
#include "platform/terminal/terminal.h"
#include "presentation/inline_marks.h"

namespace vantrell::shell {

class TerminalStyle {
 public:
  static TerminalStyle plain() { return TerminalStyle(-1, false); }
  /// Colours and a status line; sizes come from the descriptor.
  static TerminalStyle live(int descriptor) { return TerminalStyle(descriptor, true); }
  /// What the descriptor and the environment allow.
  static TerminalStyle of(int descriptor, const Environment& environment);

  bool isLive() const { return isLive_; }
  /// The columns that lines are made for. On a live terminal the last one stays free, since some
  /// wrap when it is written, and a very narrow one wraps the lines; elsewhere they are as many as
  /// anyone reads.
  std::size_t columns() const;

  using Look = std::string (TerminalStyle::*)(std::string_view) const;
  // Each gives the text back unchanged when the style is plain.
  std::string dim(std::string_view text) const { return wrapped("2", text); }
  std::string bold(std::string_view text) const { return wrapped("1", text); }
  std::string red(std::string_view text) const { return wrapped("31", text); }
  std::string green(std::string_view text) const { return wrapped("32", text); }
  std::string yellow(std::string_view text) const { return wrapped("33", text); }
  std::string cyan(std::string_view text) const { return wrapped("36", text); }

 private:
  TerminalStyle(int descriptor, bool isLive) : descriptor_(descriptor), isLive_(isLive) {}
  std::string wrapped(std::string_view code, std::string_view text) const;

  int descriptor_;
  bool isLive_;
};

/// The bytes from `begin` to `end` with escape sequences, which end with them. `around` is the code
/// of how all of the text looks, as "2" for dim.
std::string styled(const InlineText& text, std::string_view around = {}, std::size_t begin = 0,
                   std::size_t end = std::string::npos);

}  // namespace vantrell::shell
