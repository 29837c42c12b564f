#include "shell/terminal/answer_lines.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace vantrell::shell {
namespace {

using testing::ElementsAre;

TEST(AnswerLines, LayBlocksOutForTheWidth) {
  const auto lines = answerLines(
      "# A heading that is long\nText that is wrapped\nhere.\n\n- one two three four five six\n"
      "  - [x] sub\n7. seven\n```sh\nls   -l a_line_that_is_never_wrapped\n\n\x1b[2J\n```\n> "
      "said\n> so\n---\n"
      "a|b\n---|---\n1|a cell with far too much in it",
      TerminalStyle::plain(), 20);
  EXPECT_THAT(lines,
              ElementsAre("A heading that is", "long", "", "Text that is wrapped", "here.", "",
                          "• one two three four", "  five six", "  ✓ sub", "7. seven", "", "  sh",
                          "  ls   -l a_line_that_is_never_wrapped", "", "  ␛[2J", "", "│ said",
                          "│ so", "", "────────────────────", "", "a  b", "1  a cell with far…"));
}

TEST(AnswerLines, CarryLooksOverLineBreaksWhereTheStyleHasAny) {
  constexpr std::string_view text =
      "Some **bold words, `code` too** end\n# A `b` **c**\n> so **it** goes\n```\n**a**\n```\n"
      "a|b\n---|---\n**1**|`x` and *.txt\n\x1b[1m **\x1b[2J**";
  EXPECT_THAT(
      answerLines(text, TerminalStyle::live(-1), 20),
      ElementsAre("Some \x1b[1mbold words,\x1b[22m",
                  "\x1b[1m\x1b[36mcode\x1b[39m\x1b[22m\x1b[1m too\x1b[22m end", "",
                  "\x1b[1mA \x1b[36mb\x1b[39m c\x1b[0m", "",
                  "\x1b[2m│ so \x1b[22;1mit\x1b[22;2m goes\x1b[0m", "", "\x1b[36m  **a**\x1b[0m",
                  "", "\x1b[2ma\x1b[0m  \x1b[2mb\x1b[0m",
                  "\x1b[1m1\x1b[22m  \x1b[36mx\x1b[39m and *.txt", "", "␛[1m \x1b[1m␛[2J\x1b[22m"));
  const auto plain = answerLines(text, TerminalStyle::plain(), 40);
  EXPECT_EQ(plain.front(), "Some **bold words, `code` too** end");
}

TEST(AnswerLines, WrapAtBlanksAndElseAnywhere) {
  const auto wrapped = [](std::string_view text) {
    return answerLines(text, TerminalStyle::plain(), 20);
  };
  EXPECT_THAT(wrapped(""), ElementsAre());
  EXPECT_THAT(wrapped("twenty columns of it and more"),
              ElementsAre("twenty columns of it", "and more"));
  EXPECT_THAT(wrapped("ab twentyone_columns_long x"),
              ElementsAre("ab", "twentyone_columns_lo", "ng x"));
  EXPECT_THAT(wrapped("漢字漢字漢字漢字漢字漢字"), ElementsAre("漢字漢字漢字漢字漢字", "漢字"));
}

}  // namespace
}  // namespace vantrell::shell
