#include "shell/terminal/answer_lines.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/text.h"
#include "presentation/response_formatting.h"

namespace vantrell::shell {
namespace {

using testing::ElementsAre;

TEST(AnswerLines, LayBlocksOutForTheWidth) {
  const auto blocks = ResponseFormatting::blocks(
      "# A heading that is long\nText that is wrapped\nhere.\n\n- one two three four five six\n"
      "  - [x] sub\n7. seven\n```sh\nls   -l a_line_that_is_never_wrapped\n\n\x1b[2J\n```\n> "
      "said\n> so\n---\n"
      "a|b\n---|---\n1|a cell with far too much in it");
  const auto lines = answerLines(blocks, TerminalStyle::plain(), 20);
  EXPECT_THAT(lines,
              ElementsAre("A heading that is", "long", "", "Text that is wrapped", "here.", "",
                          "• one two three four", "  five six", "  ✓ sub", "7. seven", "", "  sh",
                          "  ls   -l a_line_that_is_never_wrapped", "", "  ␛[2J", "", "│ said",
                          "│ so", "", "────────────────────", "", "a  b", "1  a cell with far…"));
}

TEST(AnswerLines, WrapAtBlanksAndElseAnywhere) {
  EXPECT_THAT(wrapped("", 5), ElementsAre(""));
  EXPECT_THAT(wrapped("ab cd ef", 5), ElementsAre("ab cd", "ef"));
  EXPECT_THAT(wrapped("abcdefgh ij", 5), ElementsAre("abcde", "fgh", "ij"));
  EXPECT_THAT(wrapped("漢字漢字", 5), ElementsAre("漢字", "漢字"));
  EXPECT_THAT(wrapped("漢", 1), ElementsAre("漢"));
}

}  // namespace
}  // namespace vantrell::shell
