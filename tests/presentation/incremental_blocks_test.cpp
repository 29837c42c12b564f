#include "presentation/incremental_blocks.h"

#include <gtest/gtest.h>

#include "presentation/answer_texts.h"
#include "presentation/response_formatting.h"

namespace vantrell {
namespace {

using namespace vantrell::testing;

TEST(IncrementalBlocks, AreThoseOfTheWholeTextAfterEachChunk) {
  int dense = 0;
  for (unsigned seed = 0; seed < 800; ++seed) {
    AnswerMaker maker(seed);
    const std::string text = maker.answer();
    IncrementalBlocks growing;
    std::vector<ResponseBlock> earlier;
    std::size_t settled = 0;
    for (std::size_t at = 0; at < text.size();) {
      const std::string chunk = maker.chunkOf(std::string_view(text).substr(at));
      growing.append(chunk);
      at += chunk.size();
      if (maker.below(3) == 0) continue;  // nobody reads after each chunk
      const auto& now = growing.blocks();
      ASSERT_EQ(described(now), described(ResponseFormatting::blocks(text.substr(0, at))))
          << "seed " << seed << " at " << at << " of:\n"
          << text;
      for (std::size_t i = 0; i < std::min(earlier.size(), now.size()); ++i) {
        ASSERT_TRUE(i >= settled || earlier[i].looksLike(now[i])) << "seed " << seed;
        ASSERT_EQ(earlier[i].id, now[i].id) << "seed " << seed;
      }
      ASSERT_GE(growing.settledCount(), settled) << "seed " << seed;
      settled = growing.settledCount();
      ASSERT_LE(settled, now.size());
      earlier = now;
    }
    dense +=
        ResponseFormatting::structureDenseResponse(text).contains("\n\n") && !text.contains("\n\n");
  }
  EXPECT_GT(dense, 20);
}

/// Also that prose stays together where that is asked for.
TEST(IncrementalBlocks, SettleBeforeTheBlockOfTheLastLineButOne) {
  const std::pair<std::string, std::size_t> cases[] = {
      {"one", 0},
      {std::string(40 * 9, 'x') + ". Then it stops. It works. Then", 0},
      {"one\n\n", 0},
      {"one\n\ntwo", 1},
      {"# a\n# b\n# c", 1},
      {"```\na\n```\n\nb", 1},
      {"```\na\n\nb", 0},
      {"x\n\na | b\n--", 1},
      {"x\n\na | b\n---|---\n1|2\nc", 1},
      {"x\n\na | b\n---|---\n1|2\n\nc", 2},
  };
  for (const auto& [text, settled] : cases) {
    IncrementalBlocks growing(IncrementalBlocks::Prose::asWritten);
    growing.append(text);
    EXPECT_EQ(growing.settledCount(), settled) << text;
  }
}

}  // namespace
}  // namespace vantrell
