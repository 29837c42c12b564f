#include "presentation/inline_marks.h"

#include <gtest/gtest.h>

namespace vantrell {
namespace {

/// "{b}" where bold begins, "{c}" for code, "{bc}" for both and "{}" after them.
std::string described(const InlineText& shown) {
  std::string words;
  char look = '\0';
  for (std::size_t i = 0; i < shown.text.size(); ++i) {
    if (std::exchange(look, shown.looks[i]) != look) {
      words += std::string("{") + ((look & InlineText::bold) != 0 ? "b" : "") +
               ((look & InlineText::code) != 0 ? "c" : "") + "}";
    }
    words += shown.text[i];
  }
  return look == '\0' ? words : words + "{}";
}

TEST(InlineMarks, AreReadWhereTheyAreMeant) {
  const struct {
    std::string text, shown;
  } cases[] = {
      {"(**a**), \"**b**\" — **c**.", "({b}a{}), \"{b}b{}\" — {b}c{}."},
      {"漢**字**漢", "漢{b}字{}漢"},
      {"**a `b` c** `**d**`", "{b}a {bc}b{b} c{} {c}**d**{}"},
      {"**src/shell/** and **.env**", "{b}src/shell/{} and {b}.env{}"},
      {"`a_b`s, `*.txt` and `` `x` ``", "{c}a_b{}s, {c}*.txt{} and {c} `x` {}"},
      {"**one **two**", "**one {b}two{}"},
      // One that has no partner, or is none.
      {"**bo", "**bo"},
      {"`co", "`co"},
      {"a ** b ** c, 2**3 and 4**5", "a ** b ** c, 2**3 and 4**5"},
      {"f(*args, **kwargs) and g(**kwargs)", "f(*args, **kwargs) and g(**kwargs)"},
      {"src/**/*.ts, **/*.js, lib/**", "src/**/*.ts, **/*.js, lib/**"},
      {"*a* _b_ ***c*** ****", "*a* _b_ ***c*** ****"},
      {"\\**a\\** \\`b`", "\\**a\\** \\`b`"},
      {"` and ` ``` x ``` ``", "` and ` ``` x ``` ``"},
  };
  for (const auto& [text, shown] : cases) {
    EXPECT_EQ(described(withoutMarks(text)), shown) << text;
  }
}

}  // namespace
}  // namespace vantrell
