#include "shell/terminal/inline_marks.h"

#include <gtest/gtest.h>
#include <random>

namespace vantrell::shell {
namespace {

/// "{b}" where bold begins, "{c}" for code, "{bc}" for both and "{}" behind them.
std::string described(const InlineText& shown) {
  std::string words;
  std::size_t at = 0;
  for (const auto& [end, look, removed] : shown.changes) {
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
      {"`" + std::string(longestSpan + 1, 'x') + "`",
       "`" + std::string(longestSpan + 1, 'x') + "`"},
  };
  for (const auto& [text, shown] : cases) {
    EXPECT_EQ(described(withoutMarks(text)), shown) << text;
  }
}

TEST(InlineMarks, ThatAreSettledStayWhenTheTextGrows) {
  const std::string pieces[] = {"**", "**", "`", "``", "*",  "a",
                                " ",  ".",  "(", "/",  "\"", std::string(150, 'x')};
  std::size_t settled = 0, all = 0;
  for (unsigned seed = 0; seed < 100; ++seed) {
    std::mt19937 random(seed);
    std::string text;
    for (int i = 0; i < 60; ++i) text += pieces[random() % std::size(pieces)];
    const InlineText whole = withoutMarks(text);
    for (std::size_t size = 0; size < text.size(); size += 13) {
      const InlineText early = withoutMarks(std::string_view(text).substr(0, size));
      settled += early.settled;
      all += size;
      for (std::size_t at = 0; at < early.text.size(); ++at) {
        const std::size_t source = early.sourceOf(at);
        if (source >= early.settled) break;
        ASSERT_EQ(early.lookAt(at), whole.lookAt(at)) << seed << " at " << source << ": " << text;
        ASSERT_EQ(source, whole.sourceOf(at)) << seed << " at " << source << ": " << text;
      }
    }
  }
  EXPECT_GT(settled, all / 2) << "else nothing would stream";
}

}  // namespace
}  // namespace vantrell::shell
