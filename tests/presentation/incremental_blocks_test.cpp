#include "presentation/incremental_blocks.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "presentation/answer_texts.h"
#include "presentation/response_formatting.h"

namespace vantrell {
namespace {

using namespace vantrell::testing;

TEST(IncrementalBlocks, AreThoseOfTheWholeTextAfterEachChunk) {
  int dense = 0;
  for (unsigned seed = 0; seed < 2000; ++seed) {
    AnswerMaker maker(seed);
    const std::string text = maker.answer();
    IncrementalBlocks growing;
    std::vector<ResponseBlock> earlier;
    std::size_t settled = 0;
    std::string_view rest = text;
    while (!rest.empty()) {
      const std::string chunk = maker.chunkOf(rest);
      rest.remove_prefix(chunk.size());
      growing.append(chunk);
      const auto now = std::string_view(text).substr(0, text.size() - rest.size());
      const auto where = fmt::format("seed {} at {} of:\n{}", seed, now.size(), text);
      IncrementalBlocks atOnce;
      atOnce.append(now);
      ASSERT_EQ(described(growing.blocks()), described(atOnce.blocks())) << where;
      if (rest.empty()) growing.finish();
      if (rest.empty() || text::isValidUtf8(now)) {
        ASSERT_EQ(described(growing.blocks()), described(ResponseFormatting::blocks(now))) << where;
      }
      for (std::size_t i = 0; i < std::min(earlier.size(), growing.blocks().size()); ++i) {
        const bool isSame = earlier[i].looksLike(growing.blocks()[i]);
        ASSERT_TRUE(isSame || i >= settled) << "seed " << seed;
        ASSERT_TRUE(!isSame || earlier[i].id == growing.blocks()[i].id) << "seed " << seed;
      }
      ASSERT_GE(growing.settledCount(), settled) << "seed " << seed;
      settled = growing.settledCount();
      ASSERT_LE(settled, growing.blocks().size());
      earlier = growing.blocks();
    }
    dense +=
        ResponseFormatting::structureDenseResponse(text).contains("\n\n") && !text.contains("\n\n");
  }
  EXPECT_GT(dense, 50);
}

TEST(IncrementalBlocks, SettleOnceTheNextLineIsThere) {
  const std::pair<std::string, std::size_t> cases[] = {
      {"one", 0},
      {"one\n\n", 0},
      {"one\n\ntwo", 1},
      {"# a\n# b\n# c", 2},
      {"```\na\n```\n\nb", 1},
      {"x\n\na | b\n---|---\n1|2", 1},
      {"x\n\na | b\n--", 1},
      {"x\n\na | b\nc", 1},
  };
  for (const auto& [text, settled] : cases) {
    IncrementalBlocks growing;
    growing.append(text);
    EXPECT_EQ(growing.settledCount(), settled) << text;
  }
}

TEST(IncrementalBlocks, ShowWhatIsCutOnceNothingMoreComes) {
  IncrementalBlocks growing;
  growing.append("a\xE6\xBC");
  EXPECT_EQ(growing.blocks().back().text, "a");
  growing.finish();
  EXPECT_EQ(growing.blocks().back().text, "a\xE6\xBC");
}

/// The lines that are read on and never anew; bench/presentation/ measures that.
TEST(IncrementalBlocks, TakeLongLinesInPieces) {
  const std::string_view beginnings[] = {"",      "a|b\n",   "a|b\n---|---\nx|", "1. ",  "- ",
                                         "```\n", "```",     "\n\n\n\n",         "# ",   "x\n\n1.",
                                         "> x",   "a|b|c\n", "- [x] ",           "x\n\n"};
  const std::string_view pieces[] = {
      "aaaaaaaa", "--------", "00000000",      "        x", "e\xCC\x81\xCC\x81\xCC\x81",
      "a|a|a|a|", ".The9 ab", "\n\n\n\n\n\nx", ":-:-:-:-",  "- - - - ",
      "########"};
  constexpr std::size_t times = 1500;
  for (const auto beginning : beginnings) {
    for (const auto piece : pieces) {
      IncrementalBlocks growing;
      std::string text(beginning);
      growing.append(beginning);
      for (std::size_t i = 0; i < times; ++i) growing.append(piece);
      for (std::size_t i = 0; i < times; ++i) text += piece;
      EXPECT_EQ(described(growing.blocks()), described(ResponseFormatting::blocks(text)))
          << beginning << piece;
    }
  }
}

}  // namespace
}  // namespace vantrell
