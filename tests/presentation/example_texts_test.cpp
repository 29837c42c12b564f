// The examples of CommonMark and GFM, as inputs: they hold every odd construct that people have
// argued about. Blocks are not HTML, so what is asked is that nothing is lost and nothing hangs.
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>

#include "platform/json.h"
#include "presentation/answer_texts.h"
#include "presentation/incremental_blocks.h"
#include "presentation/response_formatting.h"
#include "presentation/spoken_text.h"
#include "presentation/white_space.h"

namespace vantrell {
namespace {

/// Of the Debian package golang-github-yuin-goldmark-dev.
constexpr std::string_view folder = "/usr/share/gocode/src/github.com/yuin/goldmark/";

std::string contents(std::string_view name) {
  std::ifstream file(std::string(folder) + std::string(name));
  std::stringstream text;
  text << file.rdbuf();
  return text.str();
}

std::vector<std::string> exampleTexts() {
  std::vector<std::string> texts;
  if (const auto examples = json::parse(contents("_test/spec.json")); examples) {
    if (const auto* list = examples->asArray()) {
      for (const Json& example : *list)
        texts.push_back(*example.asObject()->find("markdown")->asText());
    }
  }
  // Number, line, Markdown, line, HTML, line.
  for (const auto name : {"table", "strikethrough", "tasklist", "linkify", "typographer"}) {
    const std::string file = contents(fmt::format("extension/_test/{}.txt", name));
    constexpr std::string_view rule = "//- - - - - - - - -//\n";
    for (std::size_t at = 0; (at = file.find(rule, at)) != file.npos;) {
      at += rule.size();
      const std::size_t end = file.find(rule, at);
      if (end == file.npos) break;
      texts.push_back(file.substr(at, end - at));
      at = end + rule.size();
    }
  }
  return texts;
}

void addInk(std::string& ink, std::string_view text) {
  for (const char c : text) {
    if (std::isalnum(static_cast<unsigned char>(c)) || (c & 0x80) != 0) {
      ink += static_cast<char>(std::tolower(c));
    }
  }
}

/// Letters and digits of what a person sees, in order.
std::string inkOf(const std::vector<ResponseBlock>& blocks) {
  std::string ink;
  for (const auto& block : blocks) {
    if (const auto* item = std::get_if<ResponseBlock::Numbered>(&block.kind)) {
      addInk(ink, std::to_string(item->number));
    } else if (const auto* check = std::get_if<ResponseBlock::Checklist>(&block.kind)) {
      if (check->checked) ink += 'x';
    } else if (const auto* code = std::get_if<ResponseBlock::Code>(&block.kind)) {
      addInk(ink, code->language.value_or(""));
    } else if (const auto* table = std::get_if<ResponseTable>(&block.kind)) {
      for (const auto& cell : table->headers) addInk(ink, cell);
      for (const auto& row : table->rows) {
        for (const auto& cell : row) addInk(ink, cell);
      }
    }
    addInk(ink, block.text);
  }
  return ink;
}

/// Of the text, but for what the rules take away: words behind the end of a fence, and the zeros
/// before a number.
std::string inkOf(const std::string& text) {
  std::string ink;
  bool isInCode = false;
  for (std::string_view line : text::split(text, '\n')) {
    line = white::trimmedOfBlanks(line);
    if (line.starts_with("```")) {
      if (std::exchange(isInCode, !isInCode)) continue;
    } else if (const auto item = ResponseFormatting::numberedItem(line); item && !isInCode) {
      line.remove_prefix(line.find_first_of(".)"));
      addInk(ink, std::to_string(item->number));
    }
    addInk(ink, line);
  }
  return ink;
}

TEST(ExampleTexts, LoseNoLetterAndNoDigit) {
  auto texts = exampleTexts();
  ASSERT_GT(texts.size(), 650u)
      << "golang-github-yuin-goldmark-dev is not installed (scripts/packages)";
  const std::size_t examples = texts.size();
  for (unsigned seed = 0; seed < 500; ++seed) {
    testing::AnswerMaker maker(seed);
    // Examples one after the other make lists, quotes and code run into each other.
    std::string text;
    for (int i = 0; i < 4; ++i) text += texts[maker.below(examples)] + (maker.below(2) ? "\n" : "");
    texts.push_back(text);
  }
  for (const auto& text : texts) {
    const auto blocks = ResponseFormatting::blocks(text);
    EXPECT_EQ(inkOf(blocks), inkOf(text)) << text;
    IncrementalBlocks growing;
    for (std::size_t at = 0; at < text.size(); at += 3) growing.append(text.substr(at, 3));
    growing.finish();
    EXPECT_EQ(testing::described(growing.blocks()), testing::described(blocks)) << text;
    EXPECT_FALSE(SpokenText::render(text).contains('\n')) << text;
  }
}

}  // namespace
}  // namespace vantrell
