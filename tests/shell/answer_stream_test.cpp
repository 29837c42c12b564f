#include "shell/terminal/answer_stream.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/text/text.h"
#include "presentation/answer_texts.h"

namespace vantrell::shell {
namespace {

using ::testing::ElementsAre;

const TerminalStyle style = TerminalStyle::live(-1);

std::string withoutLooks(std::string_view text) {
  std::string plain;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] == '\x1b') {
      at = text.find('m', at);
    } else {
      plain += text[at];
    }
  }
  return plain;
}

TEST(AnswerStream, GivesTheLinesOfTheWholeWhateverTheChunks) {
  for (unsigned seed = 0; seed < 200; ++seed) {
    testing::AnswerMaker maker(seed);
    const std::string text = maker.answer();
    const std::size_t columns = seed % 2 ? 79 : 30;
    AnswerStream whole(style), inChunks(style);
    std::string expected = whole.append(text, columns);
    expected += whole.finish(columns);
    std::string out;
    for (std::string_view rest = text; !rest.empty();) {
      const auto chunk = maker.chunkOf(rest);
      out += inChunks.append(chunk, columns);
      rest.remove_prefix(chunk.size());
    }
    EXPECT_EQ(out + inChunks.finish(columns), expected) << "seed " << seed << " of:\n" << text;
  }
}

TEST(AnswerStream, GivesALineOnceItIsComplete) {
  AnswerStream stream(style);
  const std::pair<std::string_view, std::string_view> steps[] = {
      {"## Look", ""},
      {"\n\n- one\n- t", "\x1b[1mLook\x1b[0m\n\n• one\n"},
      {"wo\n\nA sentence longer than it is wi", "• two\n"},
      {"de **and bold** now\n",
       "\nA sentence longer than it is\nwide \x1b[1mand bold\x1b[0m now\n"},
      {"\na|b\n", ""},
      {"---|---\n1|2\n3", ""},
      {"|4\n\n```sh\nls\npw",
       "\n\x1b[2ma\x1b[0m  \x1b[2mb\x1b[0m\n1  2\n3  4\n\n"
       "\x1b[2m  sh\x1b[0m\n\x1b[36m  ls\x1b[0m\n"},
      {"d\n```\nEnd", "\x1b[36m  pwd\x1b[0m\n"},
  };
  for (const auto& [text, lines] : steps) EXPECT_EQ(stream.append(text, 30), lines) << text;
  EXPECT_EQ(stream.finish(30), "End\n");
}

TEST(AnswerStream, GoesOnWhereItWasFinished) {
  const struct {
    std::string before, after, shown;
  } cases[] = {
      {"One wor", "d more\n\nTwo", "One wor\nX\nd more\n\nTwo\n"},
      {"One\n\n", "Two", "One\nX\nTwo\n"},
      {"- one\n", "- two\n- three", "• one\nX\n• two\n• three\n"},
      {"```\nls", "\npwd\n\n```\nSo", "  ls\nX\n  pwd\n\nSo\n"},
      {"a|b\n---|---\n1|2\n", "3|4\n", "a  b\n1  2\nX\n3|4\n"},
      {"**bo", "ld** `x`", "**bo\nX\nld** x\n"},
  };
  for (const auto& [before, after, shown] : cases) {
    AnswerStream stream(style);
    std::string out = stream.append(before, 20);
    out += stream.finish(20) + "X\n";
    out += stream.append(after, 20);
    out += stream.finish(20);
    EXPECT_EQ(withoutLooks(out), shown) << before;
  }
}

std::vector<std::string> linesOf(std::string_view answer) {
  AnswerStream stream(style);
  std::string all = stream.append(answer, 20);
  all += stream.finish(20);
  std::vector<std::string> lines;
  for (const auto line : text::split(all, '\n')) lines.emplace_back(line);
  lines.pop_back();
  return lines;
}

TEST(AnswerStream, LaysOutEachKindOfLineForTheWidth) {
  const auto lines = linesOf(
      "# A heading that is long\nText that is wrapped\nhere.\n\n\n- one two three four five six\n"
      "  - [x] sub\n7. seven\n```sh\nls -l a_line_that_is_never_wrapped\n\n\x1b[2J\n```\n> "
      "said\n>\n> so\n---\n"
      "a|b\n---|---\n1|a cell with far too much in it\nab twentyone_columns_long x\n"
      "漢字漢字漢字漢字漢字漢字");
  std::vector<std::string> plain;
  for (const auto& line : lines) plain.push_back(withoutLooks(line));
  EXPECT_THAT(plain,
              ElementsAre("A heading that is", "long", "Text that is wrapped", "here.", "",
                          "• one two three four", "  five six", "  ✓ sub", "7. seven", "  sh",
                          "  ls -l a_line_that_is_never_wrapped", "", "  ␛[2J", "│ said", "│ ",
                          "│ so", "────────────────────", "a  b", "1  a cell with far…", "ab",
                          "twentyone_columns_lo", "ng x", "漢字漢字漢字漢字漢字", "漢字"));
  EXPECT_THAT(
      linesOf("Some **bold words, `code` too** end\n> so **it** goes\n\x1b[1m"),
      ElementsAre("Some \x1b[1mbold words,\x1b[0m", "\x1b[1;36mcode\x1b[0m\x1b[1m too\x1b[0m end",
                  "\x1b[2m│ \x1b[0m\x1b[2mso \x1b[0m\x1b[1mit\x1b[0m\x1b[2m goes\x1b[0m", "␛[1m"));
}

/// Each would take minutes if a layout cost all that came before.
TEST(AnswerStream, TakesLongAnswersOfAnyKind) {
  for (const std::pair<std::string, std::string> each :
       {std::pair("", "words without an end "),
        {"```\n", "a line of code\n"},
        {"a | b\n---|---\n", "one | two and more\n"},
        {"", "**stars and `ticks "}}) {
    const auto& [beginning, piece] = each;
    AnswerStream stream(style);
    std::size_t given = stream.append(beginning, 80).size(), taken = 0;
    for (; taken < 1 << 17; taken += piece.size()) given += stream.append(piece, 80).size();
    given += stream.finish(80).size();
    EXPECT_GT(given, taken / 2) << piece;
    EXPECT_LT(given, 2 * taken) << piece;
  }
}

}  // namespace
}  // namespace vantrell::shell
