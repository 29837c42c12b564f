#include "presentation/spoken_text.h"

#include <gtest/gtest.h>

namespace vantrell {
namespace {

TEST(SpokenText, LeavesOutMarkupAndCode) {
  const std::pair<std::string, std::string> cases[] = {
      {"", ""},
      {"Look:\n```cpp\nint a;\n```\nDone.", "Look: Code block omitted. Done."},
      {"```\nopen", "``` open"},
      {"![a cat](cat.png) and [the *docs*](https://x.y/z_1) of `run_it`",
       "a cat and the docs of runit"},
      {"# Title\n> - said\n1. one\n  2) two\n    - four", "Title - said one two - four"},
      {"a <b>bold</b> | c <> d||e", "a bold , c <> d, , e"},
      {"<_> x", "<> x"},
      {" ~~gone~~ __kept__ \xE2\x80\xA8 x \xFF", "gone kept x \xEF\xBF\xBD"},
      {"[](x) ![](x) [a] (b)", "[](x) [a] (b)"},
  };
  for (const auto& [text, spoken] : cases) EXPECT_EQ(SpokenText::render(text), spoken) << text;
}

TEST(SpokenText, TakesLongCode) {
  std::string code = "```\n";
  while (code.size() < 4 << 20) code += "int a = 1;  // a line\n";
  EXPECT_EQ(SpokenText::render("So: " + code + "```"), "So: Code block omitted.");
}

/// Looking again from each of these beginnings would take minutes.
TEST(SpokenText, IsBoundedForBeginningsWithoutAnEnd) {
  for (const std::string_view piece : {"\n", "![", "`"}) {
    std::string text;
    while (text.size() < 256 << 10) text += piece;
    const std::string spoken = SpokenText::render(text);
    EXPECT_FALSE(spoken.contains('\n')) << piece;
    EXPECT_TRUE(spoken.empty() || spoken.contains(piece)) << piece;
  }
}

}  // namespace
}  // namespace vantrell
