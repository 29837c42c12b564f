// The examples of CommonMark and GFM, as inputs: they hold every odd construct that people have
// argued about. Blocks are not HTML, so what is asked is that nothing is lost and nothing hangs.
#include <fmt/format.h>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>

#include "platform/values/json.h"
#include "presentation/kept_text.h"
#include "presentation/spoken_text.h"

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
  const auto examples = json::parse(contents("_test/spec.json"));
  const auto* list = examples ? examples->asArray() : nullptr;
  for (std::size_t i = 0; list && i < list->size(); ++i) {
    texts.push_back(*(*list)[i].asObject()->find("markdown")->asText());
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

TEST(ExampleTexts, LoseNothing) {
  const auto texts = exampleTexts();
  ASSERT_GT(texts.size(), 650u)
      << "golang-github-yuin-goldmark-dev is not installed (scripts/packages)";
  for (const auto& text : texts) {
    EXPECT_EQ(testing::lostOf(text), "") << text;
    EXPECT_FALSE(SpokenText::render(text).contains('\n')) << text;
  }
}

}  // namespace
}  // namespace vantrell
