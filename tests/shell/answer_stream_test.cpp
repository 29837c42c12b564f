#include "shell/terminal/answer_stream.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "presentation/answer_texts.h"
#include "presentation/response_formatting.h"
#include "support/terminal_screen.h"

namespace vantrell::shell {
namespace {

using tests::TerminalScreen;

/// A terminal of so many columns that shows a text that is whole.
TerminalScreen screenOf(std::string_view text, int columns) {
  TerminalScreen screen(static_cast<std::size_t>(columns), 1);
  const auto blocks = ResponseFormatting::blocks(text);
  const auto style = TerminalStyle::live(-1);
  const auto usable = static_cast<std::size_t>(TerminalStyle::usable(columns));
  for (const auto& line : answerLines(blocks, style, usable)) screen.write(line + "\n");
  return screen;
}

std::string laidOut(std::string_view text, int columns) {
  return screenOf(text, columns).text();
}

std::size_t bytesOf(std::string_view text, int columns) {
  std::size_t bytes = 0;
  const auto usable = static_cast<std::size_t>(TerminalStyle::usable(columns));
  const auto blocks = ResponseFormatting::blocks(text);
  for (const auto& line : answerLines(blocks, TerminalStyle::live(-1), usable)) {
    bytes += line.size() + 1;
  }
  return bytes;
}

/// Without marks, which stay where they scroll away before their partner comes, and without white
/// space, also where a terminal is shown its number.
std::string inked(std::string text) {
  constexpr std::string_view number = "<U+2028>";
  for (std::size_t at = 0; (at = text.find(number, at)) != text.npos;)
    text.erase(at, number.size());
  std::string ink;
  for (const char byte : text) {
    if (!std::string_view(" \n*`").contains(byte)) ink += byte;
  }
  return ink;
}

/// The screen ends with an empty line in any case.
std::string ended(std::string text) {
  if (!text.ends_with('\n')) text += '\n';
  return text;
}

/// A chunk of whole characters from the front of the rest.
std::string taken(std::string_view& rest, vantrell::testing::AnswerMaker& maker) {
  std::string chunk = maker.chunkOf(rest);
  while (!text::isValidUtf8(chunk)) chunk = rest.substr(0, chunk.size() + 1);
  rest.remove_prefix(chunk.size());
  return chunk;
}

class Terminal {
 public:
  explicit Terminal(terminal::Size its)
      : size(its),
        screen(static_cast<std::size_t>(its.columns), static_cast<std::size_t>(its.rows)) {}

  void add(std::string_view text) {
    stream.append(text);
    screen.write(stream.draw(size));
  }
  void leave() { screen.write(stream.leave(size)); }
  void resize(int columns, int rows) {
    size = {columns, rows};
    screen.resize(static_cast<std::size_t>(columns), static_cast<std::size_t>(rows));
  }

  terminal::Size size;
  TerminalScreen screen;
  AnswerStream stream{TerminalStyle::live(-1)};
};

TEST(AnswerStream, ScreenIsTheLayoutOfTheTextSoFarAfterEachChunk) {
  const terminal::Size sizes[] = {{80, 4000}, {20, 4000}, {41, 4000}, {7, 4000}};
  for (unsigned seed = 0; seed < 150; ++seed) {
    vantrell::testing::AnswerMaker maker(seed);
    const std::string text = vantrell::text::repaired(maker.answer());
    Terminal terminal(sizes[seed % std::size(sizes)]);
    std::string_view rest = text;
    while (!rest.empty()) {
      terminal.add(taken(rest, maker));
      const auto now = std::string_view(text).substr(0, text.size() - rest.size());
      const auto decided = now.substr(0, now.size() - terminal.stream.heldBack());
      const auto whole = screenOf(decided, terminal.size.columns);
      ASSERT_EQ(ended(terminal.screen.text()), ended(whole.text()))
          << "seed " << seed << " at " << now.size() << " of:\n"
          << text;
      ASSERT_EQ(ended(terminal.screen.looks()), ended(whole.looks())) << "seed " << seed;
    }
    terminal.leave();
    ASSERT_EQ(ended(terminal.screen.text()), ended(laidOut(text, terminal.size.columns)))
        << "seed " << seed;
    ASSERT_EQ(terminal.screen.missedMoves(), 0) << "seed " << seed;
  }
}

/// What scrolled away before it was settled stays as it was; nothing is lost or doubled.
TEST(AnswerStream, LowTerminalHasAllTheInkInOrder) {
  for (unsigned seed = 0; seed < 300; ++seed) {
    vantrell::testing::AnswerMaker maker(seed);
    // Without tables, whose cells are cut.
    std::string text = vantrell::text::repaired(maker.answer());
    std::erase(text, '|');
    Terminal terminal({30, 2 + static_cast<int>(seed % 5)});
    std::string_view rest = text;
    while (!rest.empty()) {
      terminal.add(taken(rest, maker));
    }
    terminal.leave();
    ASSERT_EQ(inked(terminal.screen.text()), inked(laidOut(text, 30)))
        << "seed " << seed << " of:\n"
        << text << "\nscreen:\n"
        << terminal.screen.text();
    ASSERT_EQ(terminal.screen.missedMoves(), 0) << "seed " << seed;
  }
}

/// An answer as agents write them, and of any length.
std::string ordinaryAnswer(std::size_t bytes) {
  constexpr std::string_view part =
      "## What is wrong\n\nThe parser reads the last line twice when it has no line feed. This is "
      "the\nfault of the reader, which does not say that it has come to the end of its input.\n\n"
      "1. First make the reader honest, so that nobody has to ask it again.\n"
      "2. Then remove the check in the parser, which hides the fault and costs time.\n"
      "   - The tests of both have to change, since they were written around it.\n\n"
      "```cpp\nif (reader.isAtEnd()) {\n\treturn std::nullopt;\n}\n```\n\n"
      "| File | Lines | Why |\n|---|---|---|\n| reader.cpp | 12 | it is the cause |\n"
      "| parser.cpp | 340 | it hides the cause |\n\n> Nothing else is touched.\n\n";
  std::string text;
  while (text.size() < bytes) text += part;
  return text;
}

TEST(AnswerStream, WritesLittleMoreThanTheLayout) {
  const std::string text = ordinaryAnswer(8000);
  for (const std::size_t chunk : {4, 16, 200}) {
    Terminal terminal({80, 24});
    for (std::size_t at = 0; at < text.size(); at += chunk) terminal.add(text.substr(at, chunk));
    terminal.leave();
    EXPECT_EQ(terminal.screen.text(), laidOut(text, 80));
    EXPECT_LT(terminal.screen.bytesWritten(), 2 * bytesOf(text, 80)) << chunk;
  }
}

/// Each would take minutes if a chunk cost what was there before.
TEST(AnswerStream, TakesLongAnswersOfAnyKind) {
  constexpr std::size_t bytes = 1 << 18;
  const struct {
    std::string beginning;
    std::string piece;
  } cases[] = {{"", "words without an end "},
               {"# A\n", "words without an end "},
               {"```\n", "code_without_a_line_end;"},
               {"```\n", "a line of code\n"},
               {"a | b\n---|---\n", "one | two and more\n"},
               {"", "It ends here. Then it goes. "},
               {"", "**stars and `ticks "},
               {"", "**"}};
  for (const auto& [beginning, piece] : cases) {
    Terminal terminal({80, 24});
    AnswerStream& stream = terminal.stream;
    std::size_t written = 0;
    stream.append(beginning);
    std::string chunk;
    while (chunk.size() < 200) chunk += piece;
    for (std::size_t size = 0; size < bytes; size += chunk.size()) {
      stream.append(chunk);
      written += stream.draw(terminal.size).size();
    }
    written += stream.leave(terminal.size).size();
    EXPECT_LT(written, 3 * bytes) << beginning << piece;
  }
}

TEST(AnswerStream, GoesOnWhereItWasLeft) {
  const struct {
    std::string before, after, shown;
  } cases[] = {
      {"One wor", "d more\n\nTwo", "One wor\nX\nd more\n\nTwo\n"},
      {"One\n\n", "Two", "One\nX\nTwo\n"},
      {"- one\n", "- two\n- three", "• one\nX\n• two\n• three\n"},
      {"```sh\nls", "\npwd\n\n```\nSo", "  sh\n  ls\nX\n  pwd\n\n\nSo\n"},
      {"```\nls -", "l\n```", "  ls -\nX\n  l\n"},
      {"a|b\n---|---\n1|2\n", "3|4\n", "a  b\n1  2\nX\n3  4\n"},
      {"Then:\n-", " one\n", "Then: -\nX\n• one\n"},
      {"**bo", "ld** `x`", "**bo\nX\nld x\n"},
  };
  for (const bool isRebuilt : {false, true}) {
    for (const auto& [before, after, shown] : cases) {
      Terminal terminal({80, 24});
      terminal.add(before);
      terminal.leave();
      terminal.screen.write("X\n");
      if (isRebuilt) {
        AnswerStream anew(TerminalStyle::live(-1));
        anew.append(before);
        anew.skip();
        anew.append(after);
        terminal.screen.write(anew.leave(terminal.size));
      } else {
        terminal.add(after);
        terminal.leave();
      }
      EXPECT_EQ(terminal.screen.text(), shown) << before;
    }
  }
}

TEST(AnswerStream, KeepsBackWhatIsNotDecided) {
  const struct {
    std::string text;
    std::size_t kept;
  } cases[] = {{"-", 1},
               {"- ", 2},
               {"- a", 0},
               {"12.", 3},
               {"one\n\n``", 2},
               {"x\n| a | b", 7},
               {"x\n|a|b|\n", 6},
               {"x\n|a|b|\n|--", 9},
               {"x\n|a|b|\n|-|-|\n|1", 2},
               {"|a|b|\nno", 0},
               {"```\n|a", 0},
               {"**bo", 0},
               {"```cpp", 6},
               {"```\n-", 0}};
  for (const auto& [text, kept] : cases) {
    AnswerStream whole(TerminalStyle::live(-1)), pieces(TerminalStyle::live(-1));
    whole.append(text);
    for (const char byte : text) pieces.append(std::string_view(&byte, 1));
    EXPECT_EQ(whole.heldBack(), kept) << text;
    EXPECT_EQ(pieces.heldBack(), kept) << text;
  }
}

TEST(AnswerStream, SurvivesAChangedSize) {
  const std::string first =
      "Some words that fill more than a row of a terminal of forty columns, no";
  const std::string second = " doubt about it.\n\n- and an item";
  const struct {
    terminal::Size before, after;
    std::string shown;
  } cases[] = {
      // Wider: the lines are laid out anew in their place.
      {{40, 10},
       {60, 10},
       "Some words that fill more than a row of a terminal of forty\ncolumns, no doubt about it.\n"
       "\n• and an item\n"},
      // Narrower: rows that do not fit stay as the terminal has them; the last one does.
      {{40, 10},
       {36, 10},
       "Some words that fill more than a row of\na terminal of forty columns, no\ndoubt about it."
       "\n\n• and an item\n"},
      // Nothing fits.
      {{40, 10},
       {25, 10},
       "Some words that fill more than a row of\na terminal of forty columns, no\ndoubt about it."
       "\n\n• and an item\n"},
      {{40, 10},
       {40, 1},
       "Some words that fill more than a row of\na terminal of forty columns, no doubt\nabout it."
       "\n\n• and an item\n"},
  };
  for (const auto& [before, after, shown] : cases) {
    Terminal terminal(before);
    terminal.add(first);
    terminal.resize(after.columns, after.rows);
    terminal.add(second);
    terminal.leave();
    EXPECT_EQ(terminal.screen.text(), shown) << after.columns;
    EXPECT_EQ(terminal.screen.missedMoves(), 0);
  }
}

TEST(AnswerStream, IsHarmless) {
  Terminal terminal({20, 5});
  terminal.add("\x1b[2Jx\r\n\ty\x1b");
  terminal.add("[31m e");
  terminal.add("\xCC\x81\n\n```\n\ta\tb\n\x1b[A");
  terminal.leave();
  EXPECT_EQ(terminal.screen.text(), "␛[2Jx y␛[31m e\xCC\x81\n\n          a       b\n  ␛[A\n");
}

}  // namespace
}  // namespace vantrell::shell
