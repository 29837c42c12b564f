#include "presentation/spoken_text.h"

#include <gtest/gtest.h>

#include "presentation/answer_texts.h"

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
      {"a <b>bold</b> | c <> d", "a bold , c <> d"},
      {" ~~gone~~ __kept__ \xE2\x80\xA8 x ", "gone kept x"},
      {"[](x) ![](x) [a] (b)", "[](x) [a] (b)"},
  };
  for (const auto& [text, spoken] : cases) EXPECT_EQ(SpokenText::render(text), spoken) << text;
}

std::string byExpressions(std::string text) {
  constexpr std::pair<std::string_view, std::string_view> steps[] = {
      {R"((?s)```.*?```)", " Code block omitted. "},
      {R"(!\[([^\]]*)\]\([^)]*\))", "$1"},
      {R"(\[([^\]]+)\]\([^)]*\))", "$1"},
      {R"(`([^`]+)`)", "$1"},
      {R"((?m)^\s{0,3}(#{1,6}|>|[-+*]|\d+[.)])\s+)", ""},
      {R"([*_~]+)", ""},
      {R"(<[^>]+>)", " "},
      {R"(\|)", ", "},
      {R"(\s+)", " "}};
  static const auto patterns = [&] {
    std::vector<text::Pattern> list;
    for (const auto& [expression, with] : steps)
      list.push_back(*text::Pattern::compile(expression));
    return list;
  }();
  for (std::size_t i = 0; i < std::size(steps); ++i) {
    std::string out;
    std::size_t copied = 0;
    for (const auto& match : patterns[i].findAll(text)) {
      out.append(text, copied, match.offset - copied);
      out += steps[i].second == "$1" ? *match.groups[1] : std::string(steps[i].second);
      copied = match.offset + match.length;
    }
    text = out + text.substr(copied);
  }
  return std::string(text::trimmed(text));
}

TEST(SpokenText, IsWhatTheExpressionsGive) {
  // A ";" ends each.
  static const auto pieces = text::split(
      std::string_view("`;```;![;[;];](;(;);<;>;|;*;_;#;##;- ;-;1.;12) ;\n;\n\n; ;\t;\v;\f;\r;\r\n;"
                       "\xC2\x85;\xE2\x80\xA8;\xC2\xA0;\xD9\xA3.;a;word ;~;\xC3\xA9"),
      ';');
  for (unsigned seed = 0; seed < 6000; ++seed) {
    testing::AnswerMaker maker(seed);
    const std::string text = maker.of(pieces, maker.below(24));
    ASSERT_EQ(SpokenText::render(text), byExpressions(text)) << "seed " << seed << ": " << text;
  }
}

/// Going back to each beginning takes minutes for one of these.
TEST(SpokenText, ReadsBeginningsWithoutAnEndOnce) {
  for (const std::string_view piece : {"\n", "\r\n", "![", "[", "<", "`", "1", "#", "   \n"}) {
    std::string text;
    while (text.size() < 512 << 10) text += piece;
    // Six signs of code become a sentence of 21.
    EXPECT_LE(SpokenText::render(text).size(), 4 * text.size()) << piece;
  }
}

}  // namespace
}  // namespace vantrell
