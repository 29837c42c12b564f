#include "shell/terminal/answer_stream.h"

#include <gtest/gtest.h>

#include "presentation/answer_texts.h"
#include "presentation/response_formatting.h"
#include "shell/terminal/answer_lines.h"
#include "shell/terminal/terminal_text.h"

namespace vantrell::shell {
namespace {

const TerminalStyle style = TerminalStyle::live(-1);

/// As answerLines gives it, but prose stays together as in a stream.
std::string laidOut(std::string_view text, std::size_t columns) {
  IncrementalBlocks blocks(IncrementalBlocks::Prose::asWritten);
  blocks.append(sanitized(text));
  std::string out;
  const auto& all = blocks.blocks();
  for (std::size_t i = 0; i < all.size(); ++i) {
    const auto lines = blockLines(all[i], 0, false, style, columns);
    if (!out.empty() && !lines.empty() && standsApart(all[i], all[i - 1])) out += '\n';
    for (const auto& line : lines) out += line.text + "\n";
  }
  return out;
}

std::string streamed(std::string_view text, std::size_t columns,
                     const std::function<std::size_t(std::string_view)>& chunkSize) {
  AnswerStream stream(style);
  std::string out;
  while (!text.empty()) {
    const std::size_t size = std::min(chunkSize(text), text.size());
    stream.append(text.substr(0, size));
    text.remove_prefix(size);
    out += stream.lines(columns);
  }
  return out + stream.finish(columns);
}

TEST(AnswerStream, GivesTheLinesOfTheWholeWhateverTheChunks) {
  for (unsigned seed = 0; seed < 400; ++seed) {
    vantrell::testing::AnswerMaker maker(seed);
    const std::string text = maker.answer();
    const std::size_t columns = seed % 2 ? 79 : 30;
    const auto lines =
        streamed(text, columns, [&](std::string_view rest) { return maker.chunkOf(rest).size(); });
    EXPECT_EQ(lines, laidOut(text, columns)) << "seed " << seed << " of:\n" << text;
  }
}

TEST(AnswerStream, GivesALineOnceItIsComplete) {
  AnswerStream stream(style);
  const std::pair<std::string_view, std::string_view> steps[] = {
      {"## Look", ""},
      {"\n\n- one\n- t", "\x1b[1mLook\x1b[0m\n\n• one\n"},
      {"wo\n\nA sentence longer than it is wi", "• two\n\nA sentence longer than it is\n"},
      {"de **and", ""},
      {" bold** now, as one sees it", "wide \x1b[1mand bold\x1b[22m now, as one sees\n"},
      {"\n\na|b\n", "it\n"},
      {"---|---\n1|2\n3", ""},
      {"|4\n\n```sh\nls\npw",
       "\n\x1b[2ma\x1b[0m  \x1b[2mb\x1b[0m\n1  2\n3  4\n\n"
       "\x1b[2m  sh\x1b[0m\n\x1b[36m  ls\x1b[0m\n"},
      {"d\n```\nEnd", "\x1b[36m  pwd\x1b[0m\n"},
  };
  for (const auto& [text, lines] : steps) {
    stream.append(text);
    EXPECT_EQ(stream.lines(30), lines) << text;
  }
  EXPECT_EQ(stream.finish(30), "\nEnd\n");
}

TEST(AnswerStream, GoesOnWhereItWasFinished) {
  const struct {
    std::string before, after, shown;
  } cases[] = {
      {"One wor", "d more\n\nTwo", "One wor\nX\nd more\n\nTwo\n"},
      {"One\n\n", "Two", "One\nX\nTwo\n"},
      {"- one\n", "- two\n- three", "• one\nX\n• two\n• three\n"},
      {"```\nls", "\npwd\n\n```\nSo", "  ls\nX\n  pwd\n\nSo\n"},
      {"```\nls -", "l\n```", "  ls -\nX\n  l\n"},
      {"a|b\n---|---\n1|2\n", "3|4\n", "a  b\n1  2\nX\n3  4\n"},
      {"Then:\n-", " one\n", "Then: -\nX\n• one\n"},
      {"Then:\n---", "x", "Then:\n\n────────────────────\nX\nThen: ---x\n"},
      {"**bo", "ld** `x`", "**bo\nX\nld** x\n"},
  };
  for (const auto& [before, after, shown] : cases) {
    AnswerStream stream(style);
    stream.append(before);
    std::string out = stream.finish(10) + "X\n";
    stream.append(after);
    out += stream.lines(10) + stream.finish(10);
    std::string plain;
    for (std::size_t at = 0; at < out.size(); ++at) {
      if (out[at] == '\x1b') {
        at = out.find('m', at);
      } else {
        plain += out[at];
      }
    }
    EXPECT_EQ(plain, shown) << before;
  }
}

/// Each would take minutes if a layout cost all that came before.
TEST(AnswerStream, TakesLongAnswersOfAnyKind) {
  for (const std::pair<std::string, std::string> each :
       {std::pair("", "words without an end "),
        {"```\n", "a line of code\n"},
        {"a | b\n---|---\n", "one | two and more\n"},
        {"", "**stars and `ticks "},
        {"", "a|"}}) {
    const auto& [beginning, piece] = each;
    std::string text = beginning;
    while (text.size() < 1 << 17) text += piece;
    const auto lines = streamed(text, 80, [](std::string_view) { return 1000; });
    EXPECT_GT(lines.size(), text.size() / 2) << piece;
    EXPECT_LT(lines.size(), 2 * text.size()) << piece;
  }
}

}  // namespace
}  // namespace vantrell::shell
