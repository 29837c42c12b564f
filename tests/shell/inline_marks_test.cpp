#include "shell/terminal/inline_marks.h"

#include <gtest/gtest.h>
#include <random>

namespace vantrell::shell {
namespace {

/// "{b}" where bold begins, "{c}" for code, "{bc}" for both and "{}" behind them.
std::string described(const InlineText& shown) {
  std::string words;
  std::size_t at = 0;
  for (const auto& [end, look] : shown.changes) {
    words += shown.text.substr(at, end - at) + "{" + (look.isBold ? "b" : "") +
             (look.isCode ? "c" : "") + "}";
    at = end;
  }
  return words + shown.text.substr(at);
}

TEST(InlineMarks, AreReadWhereTheyAreMeant) {
  const struct {
    std::string text, shown;
  } cases[] = {
      {"**Running:** 2m", "{b}Running:{} 2m"},
      {"(**a**), \"**b**\" — **c**.", "({b}a{}), \"{b}b{}\" — {b}c{}."},
      {"漢**字**漢", "漢{b}字{}漢"},
      {"**a `b` c** `**d**`", "{b}a {bc}b{b} c{} {c}**d**{}"},
      {"**src/shell/** and **.env**", "{b}src/shell/{} and {b}.env{}"},
      {"`a_b`s, `*.txt` and `` `x` ``", "{c}a_b{}s, {c}*.txt{} and {c} `x` {}"},
      {"**one **two**", "**one {b}two{}"},
      // One that has no partner, or is none.
      {"**bo", "**bo"},
      {"`co", "`co"},
      {"a ** b ** c", "a ** b ** c"},
      {"2**3 and 4**5", "2**3 and 4**5"},
      {"f(*args, **kwargs) and g(**kwargs)", "f(*args, **kwargs) and g(**kwargs)"},
      {"src/**/*.ts, **/*.js, lib/**", "src/**/*.ts, **/*.js, lib/**"},
      {"snake_case_name, *.txt, *.md, __init__", "snake_case_name, *.txt, *.md, __init__"},
      {"*a* _b_ ***c*** ****", "*a* _b_ ***c*** ****"},
      {"(**) and (**)", "(**) and (**)"},
      {"\\**a\\** \\`b`", "\\**a\\** \\`b`"},
      {"` and ` ``` x ``` ``", "` and ` ``` x ``` ``"},
      {"[**a](b) `c``", "[**a](b) `c``"},
      // A combining character belongs to the mark.
      {"**\xCC\x81"
       "a** **b**\xCC\x81 `c`\xCC\x81",
       "**\xCC\x81"
       "a** **b**\xCC\x81 `c`\xCC\x81"},
      {"`" + std::string(InlineMarks::longestSpan, 'x') + "`",
       "`" + std::string(InlineMarks::longestSpan, 'x') + "`"},
  };
  for (const auto& [text, shown] : cases) {
    EXPECT_EQ(described(withoutMarks(text)), shown) << text;
  }
}

/// The marks behind an offset that is not within one.
std::vector<std::size_t> marksBehind(std::size_t offset, const InlineMarks& marks) {
  std::vector<std::size_t> behind;
  for (const auto& mark : marks.marks()) {
    if (mark.end <= offset) continue;
    const std::size_t look = (mark.after.isBold ? 1U : 0U) + (mark.after.isCode ? 2U : 0U);
    behind.insert(behind.end(), {mark.begin, mark.end, look});
  }
  return behind;
}

TEST(InlineMarks, AreTheSameFromAReadingPointWhenTheTextHasGrown) {
  const std::string pieces[] = {"**", "**", "`", "``", "*",  "a",
                                " ",  ".",  "(", "/",  "\"", std::string(700, 'x')};
  for (unsigned seed = 0; seed < 150; ++seed) {
    std::mt19937 random(seed);
    std::string text;
    for (int i = 0; i < 80; ++i) text += pieces[random() % std::size(pieces)];
    const std::size_t before = text.size() / 2;
    InlineMarks early(std::string_view(text).substr(0, before));
    const InlineMarks whole(text);
    // Of what stands at the end nobody knows yet how it goes on.
    for (std::size_t offset = 0; offset + 3 < before; ++offset) {
      if (text[offset] == 'x' && offset % 50 != 0) continue;
      const std::size_t point = early.readingPoint(offset);
      ASSERT_LE(point, offset);
      ASSERT_LE(offset - point, 2 * InlineMarks::longestSpan + 4);
      ASSERT_EQ(marksBehind(offset, InlineMarks(text, point)), marksBehind(offset, whole))
          << "seed " << seed << " at " << offset << " of:\n"
          << text;
    }
  }
}

}  // namespace
}  // namespace vantrell::shell
