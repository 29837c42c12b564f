#include "presentation/response_formatting.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/files/files.h"
#include "platform/values/json.h"
#include "presentation/answer_texts.h"
#include "presentation/kept_text.h"

namespace vantrell {
namespace {

using ::testing::ElementsAreArray;
using namespace vantrell::testing;

/// What is asked: the blocks of a text, one line each.
struct Case {
  std::string text;
  std::vector<std::string> blocks;
};

TEST(ResponseFormatting, TakesLinesAsTheirMarksSay) {
  const Case cases[] = {
      {"", {}},
      {" \r\n\t\n", {}},
      {"one\r\ntwo\rthree\n\nfour", {"p: one two three", "p: four"}},
      {"# One\n###### Six\n####### Seven\n#None\n#  wide",
       {"h1: One", "h6: Six", "p: ####### Seven #None", "h1:  wide"}},
      {"- a\n   * b\n\t+ c\n                    \xE2\x80\xA2 d\n-e",
       {"bullet0: a", "bullet1: b", "bullet2: c", "bullet6: d", "p: -e"}},
      {"- [ ] open\n  - [x]  done\n- [X] Done\n- [x]none\n- [ ]\n- [y] no",
       {"open0: open", "done1: done", "done0: Done", "bullet0: [x]none", "bullet0: [ ]",
        "bullet0: [y] no"}},
      {"1. one\n  22)  two\n3.none\n9223372036854775807. last\n9223372036854775808. more",
       {"number0 1: one", "number1 22: two", "p: 3.none", "number0 9223372036854775807: last",
        "p: 9223372036854775808. more"}},
      {"> said\n>\n>>twice", {"quote: said", "quote: ", "quote: >twice"}},
      {"---\n- - -\n***\n_ _ _\n- -\n--\n*-*",
       {"divider: ", "divider: ", "divider: ", "divider: ", "bullet0: -", "p: -- *-*"}},
      {"```cpp\n  a;  \n\n# b\n``` end\nc", {"code(cpp):   a;  \n\n# b", "p: c"}},
      {"text\n```\nnever closed", {"p: text", "code: never closed"}},
      {"a\n```", {"p: a", "code: "}},
      {"before\n| a | b |\n|:---:|---|\n| 1 | |\n|2|3|4|\nbehind",
       {"p: before", "table a|b / 1|", "p: |2|3|4| behind"}},
      {"a | b\n--- | ---\n``` | x", {"table a|b / ```|x"}},
      {"a|b\n--|---\n1|2", {"p: a|b --|--- 1|2"}},
      {"a|b\n---|---|---", {"p: a|b ---|---|---"}},
      {"# a | b\n---|---", {"table # a|b"}},
      {"a|b\n---|---||\n", {"table a|b"}},
      {"a|b|\n---|  |---", {"p: a|b| ---|  |---"}},
      {"a|b\nc|d\n---|---\n1|2", {"p: a|b", "table c|d / 1|2"}},
      {"x\n\f\n1. \f", {"p: x \f 1."}},
  };
  for (auto [text, blocks] : cases) {
    for (auto& block : blocks) {
      if (block.starts_with("table")) block += ": ";
    }
    EXPECT_THAT(described(ResponseFormatting::blocks(text)), ElementsAreArray(blocks)) << text;
  }
}

/// The examples of CommonMark, as inputs: they hold every odd construct that people have argued
/// about. Of the Debian package golang-github-yuin-goldmark-dev.
std::vector<std::string> exampleTexts() {
  std::vector<std::string> texts;
  const auto file =
      files::read("/usr/share/gocode/src/github.com/yuin/goldmark/_test/spec.json").value_or("[]");
  const auto examples = json::parse(file);
  for (const Json& each : *examples->asArray()) {
    texts.push_back(json::textOr(*each.asObject(), "markdown", ""));
  }
  return texts;
}

TEST(ResponseFormatting, LosesNothingButTheMarksOfTheLayout) {
  const auto examples = exampleTexts();
  EXPECT_GT(examples.size(), 640u) << "golang-github-yuin-goldmark-dev is missing";
  for (const auto& text : examples) EXPECT_EQ(lostOf(text), "") << text;
  for (unsigned seed = 0; seed < 2000; ++seed) {
    const std::string text = AnswerMaker(seed).answer();
    ASSERT_EQ(lostOf(text), "") << "seed " << seed << " of:\n" << text;
  }
}

std::string sentence(std::size_t length) {
  std::string text = "The ";
  text.resize(length - 1, 'x');
  return text + ".";
}

TEST(ResponseFormatting, BreaksUpDenseProseAtItsSentences) {
  const auto joined = [](std::vector<std::string> parts) { return text::joined(parts, "\n\n"); };
  const std::pair<std::string, std::string> cases[] = {
      // Up to 340 characters nothing happens, however many bytes they take.
      {sentence(60) + " " + sentence(279), sentence(60) + " " + sentence(279)},
      {sentence(60) + " \xC3\xA9" + std::string(278, 'x'),
       sentence(60) + " \xC3\xA9" + std::string(278, 'x')},
      {sentence(60) + " " + sentence(139) + " " + sentence(140),
       joined({sentence(60), sentence(139) + " " + sentence(140)})},
      {sentence(180) + " " + sentence(160), joined({sentence(180), sentence(160)})},
      // A longer first sentence is no lead; paragraphs go to 320 without the blank between.
      {sentence(181) + " " + sentence(139) + " " + sentence(60),
       joined({sentence(181) + " " + sentence(139), sentence(60)})},
      {sentence(181) + " " + sentence(140) + " " + sentence(60),
       joined({sentence(181), sentence(140) + " " + sentence(60)})},
      {sentence(300) + sentence(60), joined({sentence(300), sentence(60)})},
      {sentence(340) + "Th9 x", sentence(340) + "Th9 x"},
      {sentence(340) + "The\xC3\xA9", sentence(340) + "The\xC3\xA9"},
      {sentence(340) + " \xE2\x80\xA8 9 x", joined({sentence(340), "9 x"})},
      {sentence(300) + " " + sentence(40) + "\n# x", sentence(300) + " " + sentence(40) + "\n# x"},
      {sentence(300) + "\n\n" + sentence(40), sentence(300) + "\n\n" + sentence(40)},
      {sentence(300) + "\na\nb\n" + sentence(40), sentence(300) + "\na\nb\n" + sentence(40)},
      {sentence(300) + "\n-\n" + sentence(40), sentence(300) + "\n-\n" + sentence(40)},
  };
  for (const auto& [text, structured] : cases) {
    EXPECT_EQ(ResponseFormatting::structureDenseResponse(text), structured) << text;
  }
}

/// What the line break of another kind than a line feed does inside a line.
TEST(ResponseFormatting, TakesNumberedItemsAsTheirPatternSays) {
  using namespace ResponseFormatting;
  EXPECT_EQ(numberedItem("\t1)\f \v b c\f"), (NumberedItem{1, 2, "b c"}));
  EXPECT_EQ(numberedItem("1.  \f"), (NumberedItem{1, 0, " "}));
  for (const auto none : {"1. b\fc", "1. b\f\f", "1. \f", "1.b", "1.", "1", "."}) {
    EXPECT_EQ(numberedItem(none), std::nullopt) << none;
  }
  EXPECT_EQ(tableCells("| |a"), (std::vector<std::string>{"", "a"}));
  EXPECT_EQ(tableCells("|a|"), std::nullopt);
}

}  // namespace
}  // namespace vantrell
