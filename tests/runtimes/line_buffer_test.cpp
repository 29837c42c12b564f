#include "runtimes/wire/line_buffer.h"

#include <gtest/gtest.h>
#include <random>
#include <vector>

namespace vantrell {
namespace {

std::vector<std::string> linesOf(const std::vector<std::string_view>& chunks) {
  std::vector<std::string> lines;
  LineBuffer buffer;
  for (const auto chunk : chunks) {
    buffer.consume(chunk, [&lines](std::string_view line) { lines.emplace_back(line); });
  }
  return lines;
}

TEST(LineBuffer, CutsAtLineFeedsAndSkipsEmptyLines) {
  using Lines = std::vector<std::string>;
  const std::pair<std::vector<std::string_view>, Lines> cases[] = {
      {{}, {}},
      {{""}, {}},
      {{"\n\n\n"}, {}},
      {{"a\nb\n"}, {"a", "b"}},
      {{"a\nb"}, {"a"}},
      {{"a", "b", "\n", "\n", "c\n"}, {"ab", "c"}},
      {{"a\r\n \n"}, {"a\r", " "}},
      {{"a", "\nb\nc", "d\n"}, {"a", "b", "cd"}},
      {{std::string_view("\0\n", 2)}, {std::string(1, '\0')}},
  };
  for (const auto& [chunks, expected] : cases) EXPECT_EQ(linesOf(chunks), expected);
}

TEST(LineBuffer, ChunksMakeNoDifference) {
  std::mt19937 random(7);
  const auto below = [&random](std::size_t end) {
    return std::uniform_int_distribution<std::size_t>(0, end - 1)(random);
  };
  for (int round = 0; round < 500; ++round) {
    std::string stream;
    for (std::size_t i = below(400); i > 0; --i) stream += "\nab\xC3\n\r{"[below(7)];
    std::vector<std::string_view> chunks;
    for (std::string_view rest = stream; !rest.empty();) {
      const std::size_t size = below(std::min<std::size_t>(rest.size(), 40)) + 1;
      chunks.push_back(rest.substr(0, size));
      rest.remove_prefix(size);
    }
    ASSERT_EQ(linesOf(chunks), linesOf({stream}));
  }
}

}  // namespace
}  // namespace vantrell
